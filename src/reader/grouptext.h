// The text of a group, as its token has it: the outermost delimiters, and one space between numbers
// whatever separates them in the document.
#pragma once

#include <algorithm>
#include <string_view>
#include <utility>

#include <ko/foundation.h>

#include "bulk/bulk.h"
#include "bulk/charclass.h"
#include "foundation/textbuilder.h"

namespace ko::mirel_sdk::impl {

// What tells parenthesised from braced groups.
struct GroupRules {
    char open;
    char close;
    bulk::Group group;
    chars::Class gap;
    const char* name;    // in messages about a character
    const char* plural;  // in messages about the end
};

inline constexpr GroupRules rulesOfParens = {
    '(', ')', bulk::Group::Parens, chars::ParensGap, "PAREN", "PARENS",
};
inline constexpr GroupRules rulesOfBraces = {
    '{', '}', bulk::Group::Braces, chars::BracesGap, "BRACE", "BRACES",
};

// A group on its way into its token, a run of characters at a time.
class GroupText {
  public:
    explicit GroupText(const GroupRules& rules) : rules_(rules) {}

    bool isClosed() const { return isClosed_; }

    // Takes the characters that belong to the group, up to its end; returns how many.
    unsigned long read(std::string_view run) {
        const char* at = run.data();
        const char* const end = at + run.size();
        while (at != end && !isClosed_) {
            if (chars::is(*at, chars::NumberPart)) {
                at = numbers(at, end);
            } else if (chars::is(*at, rules_.gap)) {
                gap(*at++);
            } else if (*at == rules_.open || *at == rules_.close) {
                delimiter(*at++);
            } else {
                break;
            }
        }
        return static_cast<unsigned long>(at - run.data());
    }

    // The text of a closed group. A statement's value is all that a group is for, so no memory is
    // moved to make it small.
    String takeWithRoom() { return text_.takeWithRoom(); }

  private:
    // As many as there is room for already, so that the text moves only when it is full.
    const char* numbers(const char* at, const char* end) {
        constexpr unsigned long shortStep = 128;
        endGap(*at);
        const unsigned long longest = std::max(shortStep, text_.room());
        const unsigned long step = std::min(static_cast<unsigned long>(end - at), longest);
        char* const to = text_.reserve(step);
        const bulk::Copied copied = bulk::operations().copyNumbers(at, at + step, to, rules_.group);
        text_.finishAt(copied.written);
        return copied.read;
    }

    void gap(char c) {
        const bool isBlank = chars::is(c, chars::Blank);
        if (!isBlank || !inBlanks_) ++gapParts_;
        inBlanks_ = isBlank;
    }

    // The outermost delimiters are kept, those inside dropped.
    void delimiter(char c) {
        endGap(c);
        if (c == rules_.open && !text_.isEmpty()) {
            ++depth_;
        } else if (c == rules_.close && depth_ > 0) {
            --depth_;
        } else {
            isClosed_ = c == rules_.close && !text_.isEmpty();
            text_.push(c);
        }
    }

    // A gap before `next` becomes one space. Not after the opening delimiter, and not where it is
    // one separator or run of blanks before a closing one.
    void endGap(char next) {
        const unsigned long parts = std::exchange(gapParts_, 0);
        inBlanks_ = false;
        const bool isCovered =
            !text_.isEmpty() && (text_.last() == ' ' || text_.last() == rules_.open);
        if (parts == 0 || isCovered) return;
        if (next != rules_.close || parts > 1) text_.push(' ');
    }

    const GroupRules& rules_;
    TextBuilder text_;
    unsigned long depth_ = 0;
    // Separators and runs of blanks since the last character that counts.
    unsigned long gapParts_ = 0;
    bool inBlanks_ = false;
    bool isClosed_ = false;
};

}  // namespace ko::mirel_sdk::impl
