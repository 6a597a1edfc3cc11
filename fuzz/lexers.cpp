#include "lexers.h"

#include <algorithm>

namespace kvt::fuzz {

Characters Characters::ofString(std::string_view text) {
    static constexpr char terminator = '\0';
    return Characters(text.empty() ? std::string_view(&terminator, 1) : text);
}

signed char Characters::consume() {
    advance();
    if (la != -1) bring();
    return c;
}

void Characters::bring() {
    la = next_ < text_.size() ? static_cast<signed char>(text_[next_])
                              : static_cast<signed char>(-1);
    ++next_;
}

Blocks::Blocks(std::string_view text, std::uint64_t seed)
    : text_(text), random_(seed), longest_(1UL << seed % 9) {
    start(takeBlock());
}

std::string_view Blocks::takeBlock() {
    random_ = random_ * 6364136223846793005 + 1442695040888963407;
    const unsigned long length = std::min(1 + (random_ >> 33U) % longest_, text_.size());
    block_.reset(new char[length]);
    text_.copy(block_.get(), length);
    text_.remove_prefix(length);
    return {block_.get(), length};
}

}  // namespace kvt::fuzz
