// A walk through the inputs of a node that needs no stack for the depth of the scene, and creates
// nothing in it.
#pragma once

#include <optional>
#include <string_view>

#include <ko/scene.h>

namespace kvt {

// An input, or a run of neighbouring array elements that nothing has touched yet: these are all of
// one type, hold its default and have neither children nor links.
class InputView {
  public:
    explicit InputView(const ko::mirel_sdk::impl::Input& input);
    // The elements of `array` from `first` on that are like that one; none of them was touched.
    InputView(const ko::mirel_sdk::impl::Input& array, unsigned long first);

    // Whether it stands in an array and so has a position in place of a name.
    bool isElement() const { return isElement_; }
    std::string_view name() const;
    unsigned long position() const { return position_; }
    // Elements in a run; 1 for an input.
    unsigned long count() const { return count_; }

    ko::mirel_sdk::AttrType type() const;
    ko::mirel_sdk::AttrType arrayType() const;
    // Whether it is an object or an array, and the inputs that stand in it.
    bool holdsInputs() const;
    unsigned long childCount() const;
    // The input itself, for the walk into it; null for a run.
    const ko::mirel_sdk::impl::Input* input() const { return input_; }

    // The value of a number, truth value, vector or matrix; of a text; of a buffer.
    ko::mirel_sdk::impl::AttrData value() const;
    std::string_view text() const;
    ko::mirel_sdk::impl::BufferView buffer() const;

    const ko::mirel_sdk::impl::Output* connection() const;
    const ko::mirel_sdk::impl::Node* nodeReference() const;

  private:
    const ko::mirel_sdk::impl::Input* input_ = nullptr;
    const ko::mirel_sdk::impl::Input* array_ = nullptr;
    unsigned long position_;
    unsigned long count_ = 1;
    bool isElement_;
};

// The inputs that stand side by side in a node, an object or an array, in order.
class Siblings {
  public:
    explicit Siblings(const ko::mirel_sdk::impl::Node& node) : node_(&node) {}
    explicit Siblings(const ko::mirel_sdk::impl::Input& holder) : holder_(&holder) {}

    // The object or array that they stand in; null for a node's own.
    const ko::mirel_sdk::impl::Input* holder() const { return holder_; }
    // The next of them; none at the end.
    std::optional<InputView> next();

  private:
    const ko::mirel_sdk::impl::Node* node_ = nullptr;
    const ko::mirel_sdk::impl::Input* holder_ = nullptr;
    unsigned long position_ = 0;
};

// What is done with each input of a walk.
class InputVisitor {
  public:
    virtual void enter(const InputView& input, unsigned long depth) = 0;
    // After everything inside of `input`.
    virtual void leave(const InputView& input) = 0;

  protected:
    ~InputVisitor() = default;
};

// Visits the inputs of `node` and all that they hold, depth first.
void walkInputs(const ko::mirel_sdk::impl::Node& node, InputVisitor& visitor);

}  // namespace kvt
