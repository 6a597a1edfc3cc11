#include "table.h"

#include <array>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace bench {

namespace {

std::string number(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

std::string numberOrDash(double value) { return value > 0 ? number(value, 2) : "-"; }

std::string figureText(const Figure& figure) {
    if (figure.seconds == 0) return "";
    const double bytesPerSecond = static_cast<double>(figure.load.bytes) / figure.seconds;
    const double itemsPerSecond = static_cast<double>(figure.load.items) / figure.seconds;
    const double nanoseconds = 1e9 / itemsPerSecond;
    const std::string rate = figure.load.countsBytes ? number(bytesPerSecond * 1e-6, 0) + " MB/s"
                                                     : number(itemsPerSecond * 1e-6, 2) + " M/s";
    return rate + ", " + number(nanoseconds, nanoseconds < 100 ? 2 : 0) + " ns";
}

// So many percent either way.
std::string exactness(const Row& row) {
    return row.pairs > 0 ? number(50 * row.ratio.spread(), 1) + "%" : "-";
}

std::string pairs(const Row& row) { return row.pairs > 0 ? std::to_string(row.pairs) : "-"; }

std::string verdict(const Row& row) {
    if (row.goal.must == 0 && row.goal.aim == 0) return "";
    const auto reached = [&](double goal) {
        return row.isLimit ? row.ratio.value <= goal : row.ratio.value >= goal;
    };
    if (row.goal.aim > 0 && reached(row.goal.aim)) return "  aim";
    if (row.goal.must == 0) return "  below aim";
    return reached(row.goal.must) ? "  must" : "  MISSED";
}

void printLine(std::ostream& out, const std::array<std::string, 4>& texts,
               const std::array<std::string, 5>& numbers, const std::string& end) {
    out << std::left << std::setw(28) << texts[0] << std::setw(21) << texts[1] << std::setw(28)
        << texts[2] << std::setw(20) << texts[3] << std::right;
    for (const std::string& each : numbers)
        out << std::setw(7) << each;
    out << end << '\n';
}

void printRow(std::ostream& out, const Row& row) {
    printLine(out, {row.what.name, figureText(row.what), row.against.name, figureText(row.against)},
              {numberOrDash(row.ratio.value), exactness(row), pairs(row),
               numberOrDash(row.goal.must), numberOrDash(row.goal.aim)},
              verdict(row));
}

}  // namespace

void Table::addShare(const std::string& what, double share, Goal limit) {
    add({{what, {}}, {"size of the file", {}}, {share, share, share}, 0, limit, true});
}

void Table::print(std::ostream& out) const {
    printLine(out, {"what", "", "against", ""}, {"ratio", "+-", "pairs", "must", "aim"},
              "  reached");
    for (const Row& row : rows_)
        printRow(out, row);
}

}  // namespace bench
