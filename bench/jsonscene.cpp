// Whatever reads the JSON tells a `Builder` what it came upon. Type and name come first in a node,
// which spares the builder to keep what it cannot place yet.
#include "jsonscene.h"

#include <rapidjson/reader.h>
#include <simdjson.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

namespace {

using namespace ko::mirel_sdk;
using impl::AttrData;
using impl::Input;
using impl::Node;
using impl::Scene;
using ko::String;

void require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(std::string("the JSON is no scene: ") + what);
}

// --- Making a scene -----------------------------------------------------------------------------

class Builder {
  public:
    void beginNode(std::string_view type, std::string_view name) {
        node_ = scene_.createNode(String(type), String(name), "");
        require(node_, "a node without a type, or with a name that is taken");
    }
    void set(std::string_view name, const AttrData& value) {
        require(input(name, value.type).assign(value), "a value that does not fit");
    }
    void setComponents(std::string_view name, std::string_view keyword, const double* components,
                       unsigned long count) {
        const AttrType type = scalarTypes().find(String(keyword));
        require(count == componentCount(type), "a vector of another size");
        set(name, AttrData::ofComponents(type, components));
    }
    // `output` is of the form "node.output". The node may come later.
    void connect(std::string_view name, std::string_view output) {
        const std::size_t dot = output.find('.');
        require(dot != std::string_view::npos, "an output without a node");
        waiting_.push_back({&input(name, AttrType::Null), String(output.substr(0, dot)),
                            String(output.substr(dot + 1))});
    }
    void finish() {
        for (const auto& [input, nodeName, outputName] : waiting_) {
            Node* const node = scene_.findNode(nodeName);
            require(node, "a connection to no node");
            input->connect(node->output(outputName));
        }
    }
    Scene* scene() { return &scene_; }

  private:
    struct Connection {
        Input* input;
        String node;
        String output;
    };

    Input& input(std::string_view name, AttrType type) {
        require(node_, "an input without a node");
        Input* const input = node_->createInput(String(name), type);
        require(input, "an input that is there already");
        return *input;
    }

    Scene scene_;
    Node* node_ = nullptr;
    std::vector<Connection> waiting_;
};

// --- RapidJSON ----------------------------------------------------------------------------------

// Takes the reader's events. The document is an object, its nodes are objects in that, and what is
// neither a number, a text nor a flag is an object in the node, with one key.
class Events : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Events> {
  public:
    explicit Events(Builder& builder) : builder_(builder) {}

    bool StartObject() {
        count_ = 0;
        ++depth_;
        return true;
    }
    bool EndObject(rapidjson::SizeType /*members*/) {
        --depth_;
        return true;
    }
    bool StartArray() { return true; }
    bool EndArray(rapidjson::SizeType /*elements*/) {
        if (depth_ == valueDepth)
            builder_.setComponents(name_, keyword_, components_.data(), count_);
        return true;
    }
    bool Key(const char* text, rapidjson::SizeType length, bool /*copy*/) {
        (depth_ == valueDepth ? keyword_ : name_).assign(text, length);
        return true;
    }
    bool String(const char* text, rapidjson::SizeType length, bool /*copy*/) {
        if (depth_ == valueDepth) {
            builder_.connect(name_, {text, length});
        } else {
            setText({text, length});
        }
        return true;
    }
    bool Bool(bool is) { return set(AttrData::ofBool(is)); }
    bool Int(int number) { return Int64(number); }
    bool Uint(unsigned number) { return Int64(number); }
    bool Int64(std::int64_t number) {
        return depth_ == valueDepth ? Double(static_cast<double>(number))
                                    : set(AttrData::ofInt(number));
    }
    bool Double(double number) {
        if (depth_ != valueDepth) return set(AttrData::ofReal(number));
        components_.at(count_++) = number;
        return true;
    }
    // Whatever else there is.
    bool Default() { return false; }

  private:
    static constexpr int valueDepth = 3;

    bool set(const AttrData& value) {
        builder_.set(name_, value);
        return true;
    }
    void setText(std::string_view text) {
        if (name_ == "type") {
            type_ = text;
        } else if (name_ == "name") {
            builder_.beginNode(type_, text);
        } else {
            builder_.set(name_, AttrData::ofText(text));
        }
    }

    Builder& builder_;
    int depth_ = 0;
    std::string type_;
    std::string name_;
    std::string keyword_;
    std::array<double, 16> components_{};
    unsigned long count_ = 0;
};

// --- simdjson -----------------------------------------------------------------------------------

namespace demand = simdjson::ondemand;

void setNumber(Builder& builder, std::string_view name, demand::value value) {
    const demand::number number = value.get_number();
    builder.set(name, number.is_double() ? AttrData::ofReal(number.get_double())
                                         : AttrData::ofInt(static_cast<long>(number)));
}

void setComponents(Builder& builder, std::string_view name, std::string_view keyword,
                   demand::array numbers) {
    std::array<double, 16> components{};
    unsigned long count = 0;
    for (auto number : numbers)
        components.at(count++) = number.get_double();
    builder.setComponents(name, keyword, components.data(), count);
}

// An object with one key.
void setObject(Builder& builder, std::string_view name, demand::object object) {
    for (auto field : object) {
        const std::string_view keyword = field.unescaped_key();
        if (keyword == "output") {
            builder.connect(name, field.value().get_string());
        } else {
            setComponents(builder, name, keyword, field.value().get_array());
        }
    }
}

void setValue(Builder& builder, std::string_view name, demand::value value) {
    switch (value.type()) {
        case demand::json_type::number: return setNumber(builder, name, value);
        case demand::json_type::boolean:
            return builder.set(name, AttrData::ofBool(value.get_bool()));
        case demand::json_type::string:
            return builder.set(name, AttrData::ofText(value.get_string()));
        case demand::json_type::object: return setObject(builder, name, value.get_object());
        default: require(false, "a value of another kind");
    }
}

void addNode(Builder& builder, demand::object node) {
    std::string_view type;
    for (auto field : node) {
        const std::string_view name = field.unescaped_key();
        if (name == "type") {
            type = field.value().get_string();
        } else if (name == "name") {
            builder.beginNode(type, field.value().get_string());
        } else {
            setValue(builder, name, field.value());
        }
    }
}

// --- Comparing ----------------------------------------------------------------------------------

bool isSameValue(const Input& a, const Input& b) {
    switch (a.type()) {
        case AttrType::Null: return true;
        case AttrType::Bool: return a.asBool() == b.asBool();
        case AttrType::Int: return a.asInt() == b.asInt();
        case AttrType::Real: return a.asReal() == b.asReal();
        case AttrType::String: return a.asText() == b.asText();
        default: break;
    }
    const double* const components = a.asComponents();
    return std::equal(components, components + componentCount(a.type()), b.asComponents());
}

String connectionOf(const Input& input) {
    return input.connection() ? input.connection()->fullName() : String();
}

bool isSame(const Input& a, const Input& b) {
    return a.fullName() == b.fullName() && a.type() == b.type() && isSameValue(a, b) &&
           connectionOf(a) == connectionOf(b);
}

void requireSame(const Node& node, const Node& expected) {
    const auto fail = [&] {
        throw std::runtime_error(std::string("the scenes differ at ") + expected.name().buf());
    };
    if (node.name() != expected.name() || node.type() != expected.type()) fail();
    const Input* a = node.inputAt(0);
    const Input* b = expected.inputAt(0);
    for (; a && b; a = a->nextInNode(), b = b->nextInNode())
        if (!isSame(*a, *b)) fail();
    if (a || b) fail();
}

}  // namespace

std::shared_ptr<Scene> sceneByRapidJson(const Content& content) {
    const auto builder = std::make_shared<Builder>();
    Events events(*builder);
    rapidjson::StringStream text(content.json.c_str());
    require(!rapidjson::Reader().Parse(text, events).IsError(), "RapidJSON");
    builder->finish();
    return {builder, builder->scene()};
}

std::shared_ptr<Scene> sceneBySimdJson(const Content& content) {
    struct Reading {
        demand::parser parser;
        Builder builder;
    };
    const auto reading = std::make_shared<Reading>();
    demand::document document =
        reading->parser.iterate(content.json.data(), content.json.size(), content.json.capacity());
    for (auto node : document["nodes"].get_array())
        addNode(reading->builder, node.get_object());
    reading->builder.finish();
    return {reading, reading->builder.scene()};
}

void requireSame(const Scene& scene, const Scene& expected) {
    if (scene.nodeCount() != expected.nodeCount())
        throw std::runtime_error("the scenes have different numbers of nodes");
    auto node = scene.nodes().begin();
    for (const Node* each : expected.nodes()) {
        requireSame(**node, *each);
        ++node;
    }
}

}  // namespace bench
