#include "scene_walk.h"

#include <vector>

namespace kvt {

using ko::DataType;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::BufferView;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Output;

namespace {

bool areAlike(const Input& array, unsigned long i, unsigned long j) {
    return array.untouchedType(i) == array.untouchedType(j) &&
           array.untouchedBufferType(i) == array.untouchedBufferType(j) &&
           array.untouchedArrayType(i) == array.untouchedArrayType(j);
}

// One past the last of the untouched elements that are like the one at `first`.
unsigned long endOfRun(const Input& array, unsigned long first) {
    const unsigned long size = array.inputCount();
    unsigned long end = first + 1;
    while (end < size && !array.touchedAt(end) && areAlike(array, first, end))
        ++end;
    return end;
}

}  // namespace

InputView::InputView(const Input& input)
    : input_(&input),
      position_(input.position()),
      isElement_(input.parent() && input.parent()->isArray()) {}

InputView::InputView(const Input& array, unsigned long first)
    : array_(&array), position_(first), count_(endOfRun(array, first) - first), isElement_(true) {}

std::string_view InputView::name() const {
    return input_ ? input_->name().view() : std::string_view();
}

AttrType InputView::type() const {
    return input_ ? input_->type() : array_->untouchedType(position_);
}

AttrType InputView::arrayType() const {
    return input_ ? input_->arrayType() : array_->untouchedArrayType(position_);
}

bool InputView::holdsInputs() const {
    return type() == AttrType::Object || type() == AttrType::Array;
}

unsigned long InputView::childCount() const {
    return input_ && holdsInputs() ? input_->inputCount() : 0;
}

AttrData InputView::value() const { return input_ ? input_->value() : AttrData::defaultOf(type()); }

std::string_view InputView::text() const { return input_ ? input_->asText() : std::string_view(); }

BufferView InputView::buffer() const {
    if (input_) return input_->asBuffer();
    BufferView none;
    none.type = array_->untouchedBufferType(position_);
    return none;
}

const Output* InputView::connection() const { return input_ ? input_->connection() : nullptr; }

const Node* InputView::nodeReference() const { return input_ ? input_->nodeReference() : nullptr; }

std::optional<InputView> Siblings::next() {
    if (position_ >= (node_ ? node_->inputCount() : holder_->inputCount())) return std::nullopt;
    const Input* const input = node_ ? node_->inputAt(position_) : holder_->touchedAt(position_);
    const InputView view = input ? InputView(*input) : InputView(*holder_, position_);
    position_ += view.count();
    return view;
}

void walkInputs(const Node& node, InputVisitor& visitor) {
    std::vector<Siblings> open{Siblings(node)};
    while (!open.empty()) {
        const std::optional<InputView> input = open.back().next();
        if (!input) {
            const Input* const holder = open.back().holder();
            open.pop_back();
            if (holder) visitor.leave(InputView(*holder));
        } else {
            visitor.enter(*input, open.size() - 1);
            if (input->childCount() > 0) {
                open.emplace_back(*input->input());
            } else {
                visitor.leave(*input);
            }
        }
    }
}

}  // namespace kvt
