#include "contest.h"

#include <malloc.h>

#include <algorithm>
#include <random>
#include <set>
#include <utility>

namespace bench {

namespace {

// Five values that lie on one side of a goal may do so by chance, seven hardly.
constexpr unsigned long fewestPairs = 5;
constexpr unsigned long fewestPairsForGoals = 7;
constexpr unsigned long mostPairs = 25;
// A ratio this exact is settled, whatever its goals: 2% either way.
constexpr double smallSpread = 0.04;

bool hasGoal(Goal goal) { return goal.must > 0 || goal.aim > 0; }

// Whether more pairs would hardly change which goals the ratio reaches.
bool isDecided(const Median& ratio, Goal goal) {
    const auto isOpen = [&](double wish) { return ratio.low <= wish && wish <= ratio.high; };
    return !isOpen(goal.must) && !isOpen(goal.aim);
}

}  // namespace

void Contest::add(const std::string& name, const Load& load, Pass pass) {
    contenders_[name] = {name, load, std::move(pass), {}};
}

void Contest::compare(const std::string& ours, const std::string& peer, Goal goal) {
    compare(ours, peer, goal, false);
}

void Contest::compareGrowth(const std::string& many, const std::string& few, Goal limit) {
    compare(many, few, limit, true);
}

void Contest::compare(const std::string& first, const std::string& second, Goal goal,
                      bool isGrowth) {
    const auto one = contenders_.find(first);
    const auto other = contenders_.find(second);
    if (one == contenders_.end() || other == contenders_.end()) return;
    comparisons_.push_back({&one->second, &other->second, goal, isGrowth});
}

void Contest::measure() {
    std::mt19937_64 order{std::random_device{}()};
    malloc_trim(0);  // what was freed since is not handed on to the processes of the passes
    for (unsigned long round = 0; round < mostPairs; ++round) {
        std::vector<Contender*> turns = unsettled();
        std::shuffle(turns.begin(), turns.end(), order);
        for (Contender* const each : turns)
            each->times.push_back(each->pass());
    }
}

// Who leaves does not come back, so that all passes of one place are of one round.
std::vector<Contest::Contender*> Contest::unsettled() {
    std::set<Contender*> unsettled;
    for (const Comparison& each : comparisons_)
        if (!isSettled(each)) unsettled.insert({each.first, each.second});
    return {unsettled.begin(), unsettled.end()};
}

bool Contest::isSettled(const Comparison& comparison) {
    const std::vector<double> measured = ratios(comparison);
    const bool decides = hasGoal(comparison.goal);
    if (measured.size() < (decides ? fewestPairsForGoals : fewestPairs)) return false;
    const Median ratio = medianOf(measured);
    return ratio.spread() <= smallSpread || isDecided(ratio, comparison.goal);
}

std::vector<double> Contest::ratios(const Comparison& comparison) {
    const auto& [first, second, goal, isGrowth] = comparison;
    std::vector<double> ratios;
    const std::size_t pairs = std::min(first->times.size(), second->times.size());
    for (std::size_t i = 0; i < pairs; ++i) {
        const double longer = first->times[i].cpu / second->times[i].cpu;
        ratios.push_back(isGrowth ? longer : 1 / longer);
    }
    return ratios;
}

Figure Contest::figure(const Contender& contender) {
    std::vector<double> seconds;
    for (const PassTimes& each : contender.times)
        seconds.push_back(each.cpu);
    return {contender.name, contender.load, medianOf(seconds).value};
}

std::vector<Row> Contest::rows() const {
    std::vector<Row> rows;
    for (const Comparison& each : comparisons_) {
        const std::vector<double> measured = ratios(each);
        rows.push_back({figure(*each.first), figure(*each.second), medianOf(measured),
                        measured.size(), each.goal, each.isGrowth});
    }
    return rows;
}

PassTimes Contest::total() const {
    PassTimes total;
    for (const auto& [name, contender] : contenders_)
        for (const PassTimes& each : contender.times) {
            total.cpu += each.cpu;
            total.wall += each.wall;
        }
    return total;
}

}  // namespace bench
