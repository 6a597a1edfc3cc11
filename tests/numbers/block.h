// Numbers with what they are to be read as: checked one by one, and all at once on every path.
#pragma once

#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <ko/foundation.h>
#include <ko/types.h>

#include "bulk/bulk.h"
#include "sweep.h"

namespace kvt::test {

struct NamedPath {
    const char* name;
    ko::bulk::ConvertNumbers convert;
};

// Those that this machine has.
const std::vector<NamedPath>& paths();

template <class Scalar>
bool parse(const ko::String& text, Scalar& value) {
    if constexpr (std::is_floating_point_v<Scalar>) {
        return ko::String::parse(text, value);
    } else {
        return ko::String::parse(text, value, ko::String::Auto);
    }
}

// The same number, zeros with the same sign, or both not a number.
template <class Scalar>
bool isSame(Scalar first, Scalar second) {
    if constexpr (std::is_floating_point_v<Scalar>) {
        if (std::isnan(first) && std::isnan(second)) return true;
        if (std::signbit(first) != std::signbit(second)) return false;
    }
    return first == second;
}

template <class Scalar>
class Block {
  public:
    void add(std::string_view text, Scalar expected) { put(text, expected, false); }
    void addRefused(std::string_view text) { put(text, untouched(), true); }

    void check(Sweep& sweep) const {
        for (const Entry& entry : entries_) {
            Scalar value = untouched();
            const bool wasRead = parse(ko::String(piece(entry)), value);
            if (wasRead == entry.isRefused || !isSame(value, entry.expected))
                sweep.complain(difference("alone", entry, value));
        }
        for (const NamedPath& path : paths())
            checkOn(path, sweep);
        sweep.count(entries_.size());
    }

  private:
    struct Entry {
        unsigned long begin;
        unsigned long size;
        Scalar expected;  // what stands there before, if it is refused
        bool isRefused;
    };

    // What hardly a number here is expected to be, so that nothing written is noticed.
    static Scalar untouched() {
        Scalar value;
        std::memset(&value, 0x5A, sizeof value);
        return value;
    }

    void put(std::string_view text, Scalar expected, bool isRefused) {
        if (!text_.empty()) text_ += ' ';
        entries_.push_back({text_.size(), text.size(), expected, isRefused});
        text_ += text;
        refused_ += isRefused ? 1 : 0;
    }

    std::string_view piece(const Entry& entry) const {
        return std::string_view(text_).substr(entry.begin, entry.size);
    }

    void checkOn(const NamedPath& path, Sweep& sweep) const {
        std::vector<Scalar> values(entries_.size(), untouched());
        const ko::bulk::Conversion result =
            path.convert(text_, ko::dataTypeOf<Scalar>(),
                         reinterpret_cast<unsigned char*>(values.data()), values.size());
        if (result.count != values.size() || result.allConverted != (refused_ == 0) ||
            !result.excess.empty())
            sweep.complain(std::string(path.name) + ": not the right count of " + text_);
        for (unsigned long i = 0; i < values.size(); ++i)
            if (!isSame(values[i], entries_[i].expected))
                sweep.complain(difference(path.name, entries_[i], values[i]));
    }

    std::string difference(const char* way, const Entry& entry, Scalar found) const {
        return std::string(way) + ": " + std::string(piece(entry)) + " is read as " +
               bytesOf(found) + " instead of " +
               (entry.isRefused ? "refused" : bytesOf(entry.expected));
    }

    static std::string bytesOf(Scalar value) {
        unsigned long bits = 0;
        std::memcpy(&bits, &value, sizeof value);
        return std::string(ko::String::format("0x%lx", bits).view());
    }

    std::string text_;
    std::vector<Entry> entries_;
    unsigned long refused_ = 0;
};

}  // namespace kvt::test
