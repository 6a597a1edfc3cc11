// What was measured, and how it compares: one row for each comparison that a benchmark asks for.
#pragma once

#include <benchmark/benchmark.h>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace bench {

// What a row should reach; 0 stands for no such wish.
struct Goal {
    double must = 0;
    double aim = 0;
};

// What a run of a benchmark works through; bytes stand for "MB/s", items for "M/s" and "ns".
struct Load {
    unsigned long bytes = 0;
    unsigned long items = 0;
    bool countsBytes = true;
};

// The counter that carries the time on the clock; the time itself is CPU time.
inline constexpr const char* wallCounter = "wall";

// Keeps the times of every repetition instead of printing them.
class Samples : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;

    bool has(const std::string& name) const { return times_.count(name) != 0; }
    // The medians of one pass, in seconds: the thread's CPU time, the time on the clock.
    double cpu(const std::string& name) const;
    double wall(const std::string& name) const;
    // The clock against the CPU time, over all that was measured: 1 on an idle machine.
    double waiting() const;

  private:
    struct Times {
        std::vector<double> cpu;
        std::vector<double> wall;
    };

    std::map<std::string, Times> times_;
};

class Table {
  public:
    explicit Table(const Samples& samples) : samples_(samples) {}

    void setLoad(const std::string& name, const Load& load) { loads_[name] = load; }
    // How many times as fast `ours` is as `peer`. Without samples of both there is no row.
    void compare(const std::string& ours, const std::string& peer, Goal goal = {});
    // How many times as long `many` takes as `few`; the goal is a limit.
    void compareGrowth(const std::string& many, const std::string& few, Goal limit);
    // A share of the document's size; the goal is a limit.
    void addShare(const std::string& what, double share, Goal limit);
    // A figure with nothing to compare it to.
    void addFigure(const std::string& what);

    void print(std::ostream& out) const;

  private:
    struct Row {
        std::string what;
        std::string figure;
        std::string against;
        std::string figureAgainst;
        double ratio = 0;
        Goal goal;
        bool isLimit = false;
    };

    std::string figure(const std::string& name) const;
    static const char* verdict(const Row& row);
    static void printRow(std::ostream& out, const Row& row);

    const Samples& samples_;
    std::map<std::string, Load> loads_;
    std::vector<Row> rows_;
};

}  // namespace bench
