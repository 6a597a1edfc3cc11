// How what was measured compares: one row for each comparison that a benchmark asks for.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "median.h"

namespace bench {

// What a row should reach; 0 stands for no such wish.
struct Goal {
    double must = 0;
    double aim = 0;
};

// What a pass works through; bytes stand for "MB/s", items for "M/s" and "ns".
struct Load {
    unsigned long bytes = 0;
    unsigned long items = 0;
    bool countsBytes = true;
};

// One side of a row.
struct Figure {
    std::string name;
    Load load;
    double seconds = 0;  // 0 where it is not time that is compared
};

struct Row {
    Figure what;
    Figure against;
    Median ratio;
    unsigned long pairs = 0;  // of passes that the ratio comes from
    Goal goal;
    bool isLimit = false;  // the goal is not to be passed
};

class Table {
  public:
    void add(const Row& row) { rows_.push_back(row); }
    // A share of the document's size, measured once; the goal is a limit.
    void addShare(const std::string& what, double share, Goal limit);

    void print(std::ostream& out) const;

  private:
    std::vector<Row> rows_;
};

}  // namespace bench
