// Contenders that read the same content in turns, round by round, until the ratios that are asked
// for are settled. What else the machine does hits all alike that way, and the two passes of a pair
// are those of one round.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "pass.h"
#include "table.h"

namespace bench {

class Contest {
  public:
    using Pass = std::function<PassTimes()>;

    Contest() = default;
    Contest(const Contest&) = delete;
    Contest& operator=(const Contest&) = delete;

    void add(const std::string& name, const Load& load, Pass pass);
    // Asks how many times as fast `ours` is as `peer`: nothing if one of them is not there. Who is
    // in no comparison does not read.
    void compare(const std::string& ours, const std::string& peer, Goal goal = {});
    // Asks how many times as long `many` takes as `few`; the goal is a limit.
    void compareGrowth(const std::string& many, const std::string& few, Goal limit = {});

    void measure();
    // The rows, in the order in which they were asked for.
    std::vector<Row> rows() const;
    // What all passes took.
    PassTimes total() const;

  private:
    struct Contender {
        std::string name;
        Load load;
        Pass pass;
        std::vector<PassTimes> times;  // one for each round, up to its last one
    };
    struct Comparison {
        Contender* first;
        Contender* second;
        Goal goal;
        bool isGrowth;
    };

    void compare(const std::string& first, const std::string& second, Goal goal, bool isGrowth);
    std::vector<Contender*> unsettled();
    static bool isSettled(const Comparison& comparison);
    static std::vector<double> ratios(const Comparison& comparison);
    static Figure figure(const Contender& contender);

    std::map<std::string, Contender> contenders_;
    std::vector<Comparison> comparisons_;
};

}  // namespace bench
