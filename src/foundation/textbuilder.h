// Puts a text together whose length is not known ahead.
#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include <ko/foundation.h>

namespace ko {

// A short text is collected in place; a long one grows in the buffer that becomes its String's own.
class TextBuilder {
  public:
    TextBuilder() noexcept = default;
    TextBuilder(const TextBuilder&) = delete;
    TextBuilder& operator=(const TextBuilder&) = delete;
    ~TextBuilder() { TextBuffer::destroy(buffer_); }

    bool isEmpty() const noexcept { return end_ == begin(); }
    unsigned long size() const noexcept { return static_cast<unsigned long>(end_ - begin()); }
    char last() const noexcept { return end_[-1]; }

    void push(char c) {
        *reserve(1) = c;
        ++end_;
    }
    void append(std::string_view text) {
        if (text.empty()) return;
        std::memcpy(reserve(text.size()), text.data(), text.size());
        end_ += text.size();
    }

    // Characters that fit in before the text must move.
    unsigned long room() const noexcept { return static_cast<unsigned long>(limit_ - end_); }
    // Room for `count` more characters after the text, for `finishAt` to take in.
    char* reserve(unsigned long count) {
        if (count > static_cast<unsigned long>(limit_ - end_)) grow(count);
        return end_;
    }
    // The text now ends here, within the room that was reserved.
    void finishAt(char* end) noexcept { end_ = end; }

    // The text as a String, in as much memory as it needs; the builder is not used any more.
    String take() {
        if (isSmall()) return copy();
        buffer_ = TextBuffer::resize(buffer_, size());
        return String(std::exchange(buffer_, nullptr));
    }

    // Likewise for a text that nobody keeps: a long one has all the room that it grew to, so that
    // the next one finds the block as it was.
    static constexpr unsigned long longText = 1UL << 20;
    String takeWithRoom() {
        if (isSmall() || size() < longText) return take();
        buffer_ = TextBuffer::cut(buffer_, size());
        return String(std::exchange(buffer_, nullptr));
    }

  private:
    bool isSmall() const noexcept { return !buffer_ || String::fitsShort(size()); }
    String copy() const { return String(std::string_view(begin(), size())); }

    static constexpr unsigned long inlineRoom = 256;

    const char* begin() const noexcept { return buffer_ ? buffer_->chars() : inline_; }
    // Large texts leap: what is not written takes no memory, but moving what was does, and blocks
    // of few sizes find their place again where the last one was. Allocators give back blocks from
    // 32 MiB on as soon as they are freed.
    static unsigned long roomBeyond(unsigned long length) noexcept {
        for (const unsigned long leap : {1UL << 20, 16UL << 20, 31UL << 20})
            if (length >= leap / 16 && length < leap) return leap;
        return 2 * length;
    }
    void grow(unsigned long count) {
        const unsigned long length = size();
        const unsigned long room = std::max(length + count, roomBeyond(length));
        const bool wasInline = !buffer_;
        buffer_ = TextBuffer::resize(buffer_, room);
        if (wasInline) std::memcpy(buffer_->chars(), inline_, length);
        end_ = buffer_->chars() + length;
        limit_ = buffer_->chars() + room;
    }

    TextBuffer* buffer_ = nullptr;
    char* end_ = inline_;
    char* limit_ = inline_ + inlineRoom;
    char inline_[inlineRoom];
};

}  // namespace ko
