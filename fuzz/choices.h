// The bytes of an input as a row of choices, for the targets that do more than read a document:
// each takes one byte or a few, and the row goes on with the first choices once it is at its end.
#pragma once

#include <string_view>
#include <vector>

#include <ko/scene.h>

namespace kvt::fuzz {

class Choices {
  public:
    explicit Choices(std::string_view bytes) : rest_(bytes) {}

    bool areLeft() const { return !rest_.empty(); }
    std::string_view rest() const { return rest_; }
    // The next byte; 0 when there is none.
    unsigned byte();
    // A number below `count`.
    unsigned below(unsigned count) { return byte() % count; }
    bool flag() { return below(2) != 0; }
    // So many bytes, or those that are left.
    std::string_view text(unsigned long length);
    // The bytes before the next `end`, which is passed too.
    std::string_view until(char end);

  private:
    std::string_view rest_;
};

enum class Named { Type, Node, Input, Output };

// Mostly one of the few names that documents use for such a thing; else one that is hard to take,
// or any bytes.
ko::String chosenName(Choices& choices, Named what);

// Now and then a code that is none.
ko::mirel_sdk::AttrType chosenAttrType(Choices& choices);
ko::DataType chosenDataType(Choices& choices);

// A value of that type, which owns its payload.
ko::mirel_sdk::impl::AttrData chosenValue(Choices& choices, ko::mirel_sdk::AttrType type);

// One thing that a node type is told.
class Declaration {
  public:
    explicit Declaration(Choices& choices);
    // Once, since that gives the payload of a default away.
    void addTo(ko::mirel_sdk::impl::NodeType& type);

  private:
    enum Kind {
        Plain,
        Default,
        Array,
        Buffer,
        Values,
        Initial,
        Output,
        OldInput,
        OldOutput,
        Kinds
    };

    Kind kind_;
    ko::String name_;
    ko::String other_;
    ko::mirel_sdk::AttrType type_ = ko::mirel_sdk::AttrType::Null;
    ko::DataType elements_ = ko::DataType::Null;
    ko::mirel_sdk::impl::AttrData value_;
    std::vector<ko::String> values_;
};

// One of the scene's nodes, and one of a node's inputs, elements that nothing has touched left out;
// null when there are none.
ko::mirel_sdk::impl::Node* chosenNode(Choices& choices, const ko::mirel_sdk::impl::Scene& scene);
ko::mirel_sdk::impl::Input* chosenInput(Choices& choices, ko::mirel_sdk::impl::Node& node);

}  // namespace kvt::fuzz
