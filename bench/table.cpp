#include "table.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace bench {

namespace {

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string number(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

std::string numberOrDash(double value) { return value > 0 ? number(value, 2) : "-"; }

}  // namespace

void Samples::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
        const auto passes = static_cast<double>(run.iterations);
        Times& times = times_[run.run_name.function_name];
        times.cpu.push_back(run.real_accumulated_time / passes);
        times.wall.push_back(run.counters.at(wallCounter).value / passes);
    }
}

double Samples::cpu(const std::string& name) const { return median(times_.at(name).cpu); }

double Samples::wall(const std::string& name) const { return median(times_.at(name).wall); }

double Samples::waiting() const {
    double cpuSum = 0;
    double wallSum = 0;
    for (const auto& [name, times] : times_) {
        cpuSum += cpu(name);
        wallSum += wall(name);
    }
    return cpuSum > 0 ? wallSum / cpuSum : 1;
}

std::string Table::figure(const std::string& name) const {
    const Load& load = loads_.at(name);
    const double seconds = samples_.cpu(name);
    const auto items = static_cast<double>(load.items);
    const double bytes = static_cast<double>(load.bytes);
    const std::string rate = load.countsBytes ? number(bytes / seconds * 1e-6, 0) + " MB/s"
                                              : number(items / seconds * 1e-6, 2) + " M/s";
    return rate + ", " + number(seconds / items * 1e9, seconds / items < 1e-7 ? 2 : 0) + " ns";
}

void Table::compare(const std::string& ours, const std::string& peer, Goal goal) {
    if (!samples_.has(ours) || !samples_.has(peer)) return;
    const double ratio = samples_.cpu(peer) / samples_.cpu(ours);
    rows_.push_back({ours, figure(ours), peer, figure(peer), ratio, goal, false});
}

void Table::compareGrowth(const std::string& many, const std::string& few, Goal limit) {
    if (!samples_.has(many) || !samples_.has(few)) return;
    const double ratio = samples_.cpu(many) / samples_.cpu(few);
    rows_.push_back({many, figure(many), few, figure(few), ratio, limit, true});
}

void Table::addShare(const std::string& what, double share, Goal limit) {
    rows_.push_back({what, "", "size of the file", "", share, limit, true});
}

void Table::addFigure(const std::string& what) {
    if (samples_.has(what)) rows_.push_back({what, figure(what), "", "", 0, {}, false});
}

const char* Table::verdict(const Row& row) {
    if (row.goal.must == 0 && row.goal.aim == 0) return "";
    const auto reached = [&](double goal) {
        return row.isLimit ? row.ratio <= goal : row.ratio >= goal;
    };
    if (row.goal.aim > 0 && reached(row.goal.aim)) return "aim";
    if (row.goal.must == 0) return "below aim";
    return reached(row.goal.must) ? "must" : "MISSED";
}

void Table::printRow(std::ostream& out, const Row& row) {
    out << std::left << std::setw(28) << row.what << std::setw(24) << row.figure << std::setw(28)
        << row.against << std::setw(24) << row.figureAgainst << std::right << std::setw(6)
        << numberOrDash(row.ratio) << std::setw(7) << numberOrDash(row.goal.must) << std::setw(7)
        << numberOrDash(row.goal.aim) << "  " << verdict(row) << '\n';
}

void Table::print(std::ostream& out) const {
    out << std::left << std::setw(28) << "what" << std::setw(24) << "" << std::setw(28) << "against"
        << std::setw(24) << "" << std::right << std::setw(6) << "ratio" << std::setw(7) << "must"
        << std::setw(7) << "aim"
        << "  reached\n";
    for (const Row& row : rows_)
        printRow(out, row);
}

}  // namespace bench
