// The operations of a scene in any order, each with memory that may fail: once or from then on, at
// any of its allocations. What runs out of memory says so, leaves the scene as it was and whole,
// and when everything is destroyed no block is left.
#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "../tests/failingmemory.h"
#include "choices.h"
#include "consistency.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::RefersTo;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;
using kvt::fuzz::Choices;
using kvt::fuzz::chosenAttrType;
using kvt::fuzz::chosenDataType;
using kvt::fuzz::chosenName;
using kvt::fuzz::chosenValue;
using kvt::fuzz::Declaration;
using kvt::fuzz::Named;
using kvt::fuzz::require;
using kvt::test::Allocation;
using kvt::test::Failing;
using kvt::test::FailingMemory;

// More add time, but nothing new.
constexpr unsigned mostOperations = 48;
constexpr unsigned mostHeld = 8;
constexpr unsigned mostDeclarations = 6;
constexpr unsigned mostElements = 40;
constexpr unsigned long elementLimit = 1000;
constexpr unsigned long bufferLimit = 4096;

// --- Failures

// Whether and where the memory of an operation fails.
struct Fault {
    Fault() = default;
    explicit Fault(Choices& choices) {
        const unsigned byte = choices.byte();
        isArmed = byte >= 0x80;
        failing = byte % 2 == 0 ? Failing::Once : Failing::FromThenOn;
        left = byte / 2 % 64;
    }

    bool isArmed = false;
    Failing failing = Failing::Once;
    unsigned long left = 0;
};

enum class Ending { Done, BadAlloc, Refused };

// How an operation ends, without a fault of its memory or with it.
template <class Operation>
Ending endingOf(Operation operation) {
    try {
        operation();
        return Ending::Done;
    } catch (const std::bad_alloc&) {
        return Ending::BadAlloc;
    } catch (const std::runtime_error&) {
        return Ending::Refused;
    }
}

template <class Operation>
Ending endingOf(Operation operation, const Fault& fault) {
    if (!fault.isArmed) return endingOf(operation);
    const FailingMemory memory(fault.left, fault.failing);
    return endingOf(operation);
}

// Elements of an array may have been declared with a code that is none.
bool isType(AttrType type) { return static_cast<unsigned>(type) < ko::mirel_sdk::attrTypeCount; }

// --- Documents

constexpr std::string_view documents[] = {
    "t n: .x = 1; .y = 2.5; .s = \"text\"; .list[2] = 4;",
    "u m: .object.x.y = vec3(1 2 3); .list[1][2] = \"a\"; .node |= n.out; n.x = 7;",
    "t n: .node = m; .x |= m.out; .y |= n.color;\nu m: .node = n; .x |= nobody.out;",
    "filter p: .buffer = float[3]{1 2 3}; .s = byte[4]{.00112233}; .list[0] = int32[1]{};",
    "remove n; remove m; t n; define u; with u: .x = true;",
    "choice q: .mode = \"n\"; .mode = \"nothing of it, and longer than a short text\";",
    "# version: 7\n# time: a time that is longer than a short text\n# version: x\n",
    "t n: .x = 1; remove n; .y = 2; .x |= n.out; .node = p;",
    "t n: .x = ;",
    "$",
};

// Said of everything that the library makes once and keeps.
constexpr std::string_view everything =
    "t n: .x = vec3(1 2 3); .y = float[2]{1 2}; .s = vec3f[1]{1}; .list[1] = \"a\"; .x |= n.out;\n"
    "t m: .node = m; .x = byte[2]{.0011}; .y |= a.b; .s = nobody; .x = 1; .y = ;";

constexpr std::string_view later = "later_t later_n: .x = 1; .list[1].s |= later_n.out;";

bool readsIt(Scene& scene, const String& text) {
    const ko::LogCapture ignored([](const ko::LogRecord&) {});
    return ko::mirel_sdk::impl::parseString(&scene, text);
}

// What is held beyond its scene has its value, and leads nowhere.
void requireLeft(Input& input) {
    require(!input.owner() && !input.parent(), "an input of a node that has gone");
    require(!input.connection() && !input.nodeReference(), "a link to what has gone");
    static_cast<void>(input.fullName());
    require(!input.input(input.name()), "an input below what has gone");
    if (auto* const container = input.container()) {
        require(container->inputCount() == 0 && !container->createInput("x", input.type()),
                "a container of a node that has gone");
    }
    input.assign(input.value().clone());
}

// --- The machine

// A scene and what is held of it.
class Machine {
  public:
    explicit Machine(Choices& choices) : choices_(choices) { startScene(); }

    void step();
    void end();

  private:
    using Operation = void (Machine::*)();
    static const Operation operations[];

    // Runs an operation of which nothing is left when its memory fails.
    template <class Run>
    void attempt(Run run);
    template <class Run>
    void attemptParts(Run run);
    bool hasFailed() const { return fault_.isArmed && kvt::test::hasFailed(); }
    void requireTold(Ending ending, bool isRefusedBuffer) const;
    void requireWhole() const;
    void requireElements() const;

    void startScene();
    void dropScene();
    // Calls `change`, which may remove nodes, and remembers those that it has removed.
    template <class Change>
    void removing(Change change);

    // Of the scene's nodes, or of the removed ones; of a node's inputs, or of those that are held.
    Node* node();
    Input* input();

    void createNode();
    void defineNode();
    void removeNode();
    void purgeRemoved();
    void crowdNodes();
    void crowdInputs();
    void findNode();
    void walkAndRemove();
    void registerType();
    void rename();
    void createInput();
    void createArray();
    void findOrCreate();
    void createChild();
    void createChildArray();
    void findOrCreateChild();
    void output();
    void append();
    void grow();
    void touch();
    void declare();
    void declareElements();
    void assign();
    void assignOwn();
    void assignClone();
    void clone();
    void connect();
    void disconnect();
    void setNode();
    void retain();
    void release();
    void look();
    void read();
    void comment();
    void limit();
    void replaceScene();

    Choices& choices_;
    Fault fault_;
    std::unique_ptr<Scene> scene_;
    std::vector<Node*> removed_;
    // Whether a document may have removed a node that it had made.
    bool mayHideNodes_ = false;
    std::vector<RefersTo<Input>> held_;
};

const Machine::Operation Machine::operations[] = {
    &Machine::createNode,
    &Machine::defineNode,
    &Machine::removeNode,
    &Machine::purgeRemoved,
    &Machine::findNode,
    &Machine::walkAndRemove,
    &Machine::registerType,
    &Machine::rename,
    &Machine::createInput,
    &Machine::createArray,
    &Machine::findOrCreate,
    &Machine::createChild,
    &Machine::createChildArray,
    &Machine::output,
    &Machine::append,
    &Machine::grow,
    &Machine::touch,
    &Machine::declare,
    &Machine::declareElements,
    &Machine::assign,
    &Machine::assignOwn,
    &Machine::assignClone,
    &Machine::clone,
    &Machine::connect,
    &Machine::disconnect,
    &Machine::setNode,
    &Machine::retain,
    &Machine::release,
    &Machine::look,
    &Machine::read,
    &Machine::comment,
    &Machine::limit,
    &Machine::replaceScene,
    &Machine::findOrCreateChild,
    &Machine::crowdNodes,
    &Machine::crowdInputs,
};

void Machine::step() {
    fault_ = Fault(choices_);
    const Operation operation = operations[choices_.below(std::size(operations))];
    (this->*operation)();
}

// A document is read as ever.
void Machine::end() {
    scene_->setElementLimit(~0UL);
    require(readsIt(*scene_, String(later)), "a good document that is not read");
    kvt::fuzz::dumpedText(*scene_, true);
    requireWhole();
    kvt::fuzz::purge(*scene_);
    dropScene();
    for (const RefersTo<Input>& held : held_)
        requireLeft(*held);
}

// --- Attempts

template <class Run>
void Machine::attempt(Run run) {
    const std::string before = fault_.isArmed ? kvt::fuzz::dumpedJson(*scene_, true) : "";
    attemptParts(run);
    if (!hasFailed()) return;
    require(before == kvt::fuzz::dumpedJson(*scene_, true), "a part of what failed is left");
}

template <class Run>
void Machine::attemptParts(Run run) {
    requireTold(endingOf(run, fault_), false);
    if (hasFailed()) requireWhole();
}

// The numbers of a buffer are what calloc is asked for while a document is read; without them it is
// refused.
void Machine::requireTold(Ending ending, bool isRefusedBuffer) const {
    const bool isTold = ending == Ending::BadAlloc;
    require(hasFailed() || !isTold, "memory that seems to have failed");
    require(!hasFailed() || isTold || isRefusedBuffer, "memory that fails in silence");
}

void Machine::requireWhole() const {
    kvt::fuzz::requireConsistent(*scene_);
    requireElements();
}

void Machine::requireElements() const {
    unsigned long elements = kvt::fuzz::elementsOf(*scene_);
    for (const Node* const node : removed_)
        elements += kvt::fuzz::elementsOf(*node);
    const bool isRight =
        mayHideNodes_ ? elements <= scene_->elementCount() : elements == scene_->elementCount();
    require(isRight, "elements that are not counted");
}

// --- The scene

void Machine::startScene() {
    scene_ = std::make_unique<Scene>();
    scene_->setElementLimit(elementLimit);
    scene_->setBufferLimit(bufferLimit);
}

void Machine::dropScene() {
    removed_.clear();
    mayHideNodes_ = false;
    scene_.reset();
}

void Machine::replaceScene() {
    dropScene();
    startScene();
}

template <class Change>
void Machine::removing(Change change) {
    std::vector<Node*> nodes(scene_->nodes().begin(), scene_->nodes().end());
    change();
    std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(removed_),
                 [](const Node* node) { return node->isRemoved(); });
}

Node* Machine::node() {
    constexpr unsigned firstRemoved = 0xE0;
    Choices ahead = choices_;
    const unsigned byte = ahead.byte();
    if (byte < firstRemoved || removed_.empty()) return kvt::fuzz::chosenNode(choices_, *scene_);
    choices_ = ahead;
    return removed_[byte % removed_.size()];
}

Input* Machine::input() {
    constexpr unsigned firstHeld = 0xC0;
    Choices ahead = choices_;
    const unsigned byte = ahead.byte();
    if (byte >= firstHeld && byte < firstHeld + mostHeld && !held_.empty()) {
        choices_ = ahead;
        return held_[byte % held_.size()].get();
    }
    Node* const owner = node();
    return owner ? kvt::fuzz::chosenInput(choices_, *owner) : nullptr;
}

void Machine::createNode() {
    const String type = chosenName(choices_, Named::Type);
    const String name = chosenName(choices_, Named::Node);
    const String label = chosenName(choices_, Named::Node);
    const bool canBe = !type.isEmpty() && !name.isEmpty() && !scene_->findNode(name);
    attempt([&] {
        const Node* const created = scene_->createNode(type, name, label);
        require(canBe == (created != nullptr), "a node that should be, or should not");
        if (canBe) require(scene_->findNode(name) == created, "a new node that is not found");
    });
}

void Machine::defineNode() {
    const String name = chosenName(choices_, Named::Type);
    attempt([&] { scene_->defineNode(name); });
}

void Machine::removeNode() {
    const String name = chosenName(choices_, Named::Node);
    const Node* const removed = scene_->findNode(name);
    removing([&] { attempt([&] { scene_->removeNode(name); }); });
    require(!scene_->findNode(name), "a removed node that is found");
    if (removed) kvt::fuzz::requireCut(*removed);
}

void Machine::purgeRemoved() {
    removed_.clear();
    mayHideNodes_ = false;
    attempt([&] { scene_->purgeRemoved(); });
}

void Machine::findNode() {
    const String name = chosenName(choices_, Named::Node);
    attempt([&] {
        const Node* const found = scene_->findNode(name);
        require(!found || found->name() == name, "a node of another name");
    });
}

// The node at hand may go.
void Machine::walkAndRemove() {
    const unsigned bits = choices_.byte();
    const unsigned long count = scene_->nodeCount();
    unsigned long visited = 0;
    removing([&] {
        attempt([&] {
            for (const Node* const node : scene_->nodes())
                if (bits >> (visited++ % 8) & 1U) scene_->removeNode(node->name());
        });
    });
    require(visited == count, "a walk that misses nodes");
}

// Each declaration is an operation of its own; the type goes on with what it has.
void Machine::registerType() {
    NodeType type(chosenName(choices_, Named::Type));
    for (unsigned left = choices_.below(mostDeclarations); left > 0; --left) {
        Declaration declaration(choices_);
        fault_ = Fault(choices_);
        attemptParts([&] { declaration.addTo(type); });
    }
    fault_ = Fault(choices_);
    const String name = type.name();
    const NodeType* registered = nullptr;
    attempt([&] { registered = scene_->registerType(std::move(type)); });
    require(!registered || scene_->nodeType(name) == registered, "a type that is not found");
}

void Machine::rename() {
    const String type = chosenName(choices_, Named::Type);
    const Named what = choices_.flag() ? Named::Output : Named::Input;
    const String old = chosenName(choices_, what);
    const String current = chosenName(choices_, what);
    attempt([&] {
        const bool isInput = what == Named::Input;
        (isInput ? ko::mirel_sdk::impl::registerInputRename
                 : ko::mirel_sdk::impl::registerOutputRename)(type, old, current);
    });
}

// Enough of a kind for an index, or for more memory than there is at hand.
std::vector<String> crowdOfNames(Choices& choices) {
    constexpr unsigned most = 80;
    const std::string prefix(1, static_cast<char>('A' + choices.below(26)));
    std::vector<String> names;
    for (unsigned left = choices.below(most); left > 0; --left)
        names.emplace_back(std::string_view(prefix + std::to_string(left)));
    return names;
}

void Machine::crowdNodes() {
    const String type = chosenName(choices_, Named::Type);
    const std::vector<String> names = crowdOfNames(choices_);
    attemptParts([&] {
        for (const String& name : names)
            scene_->createNode(type, name, name);
    });
}

void Machine::crowdInputs() {
    Node* const owner = node();
    const AttrType type = chosenAttrType(choices_);
    const std::vector<String> names = crowdOfNames(choices_);
    if (!owner) return;
    attemptParts([&] {
        for (const String& name : names)
            owner->createInput(name, type);
    });
}

// --- Inputs and outputs

void Machine::createInput() {
    Node* const owner = node();
    const String name = chosenName(choices_, Named::Input);
    const AttrType type = chosenAttrType(choices_);
    if (!owner) return;
    attempt([&] {
        Input* const created = owner->createInput(name, type);
        require(!created || owner->input(name) == created, "a new input that is not found");
    });
}

void Machine::createArray() {
    Node* const owner = node();
    const String name = chosenName(choices_, Named::Input);
    const AttrType type = chosenAttrType(choices_);
    if (owner) attempt([&] { owner->createArray(name, type); });
}

void Machine::findOrCreate() {
    Node* const owner = node();
    const String name = chosenName(choices_, Named::Input);
    const AttrType type = chosenAttrType(choices_);
    const AttrType elements = chosenAttrType(choices_);
    if (!owner) return;
    attempt([&] {
        const auto found = owner->findOrCreate(name, type, elements);
        require(owner->input(name) == found.input, "an input that is not found");
    });
}

void Machine::createChild() {
    Input* const parent = input();
    const String name = chosenName(choices_, Named::Input);
    const AttrType type = chosenAttrType(choices_);
    if (!parent) return;
    attempt([&] {
        const Input* const created = parent->createInput(name, type);
        require(!created || parent->input(name) == created, "a new child that is not found");
    });
}

void Machine::createChildArray() {
    Input* const parent = input();
    const String name = chosenName(choices_, Named::Input);
    const AttrType type = chosenAttrType(choices_);
    if (parent) attempt([&] { parent->createArray(name, type); });
}

void Machine::findOrCreateChild() {
    Input* const parent = input();
    const String name = chosenName(choices_, Named::Input);
    const AttrType type = chosenAttrType(choices_);
    const AttrType elements = chosenAttrType(choices_);
    if (!parent) return;
    attempt([&] {
        const auto found = parent->findOrCreate(name, type, elements);
        require(parent->input(name) == found.input, "a child that is not found");
    });
}

void Machine::output() {
    Node* const owner = node();
    const String name = chosenName(choices_, Named::Output);
    if (!owner) return;
    const unsigned long count = owner->outputCount();
    const Output* found = nullptr;
    attempt([&] { found = owner->output(name); });
    require(owner->findOutput(name) == found || !found, "an output that is not found");
    require(found || owner->outputCount() == count, "an output that is none");
}

// At the limit of the scene, an array is refused as it was.
void Machine::append() {
    Input* const array = input();
    const unsigned count = choices_.below(mostElements);
    if (!array) return;
    const unsigned long before = array->inputCount();
    attempt([&] { array->appendElements(count); });
    const unsigned long added = array->inputCount() - before;
    require(added == 0 || added == count, "some elements, but not all");
}

void Machine::grow() {
    Input* const array = input();
    const unsigned index = choices_.below(mostElements);
    if (!array) return;
    attempt([&] { array->growTo(index); });
}

void Machine::touch() {
    Input* const parent = input();
    const unsigned index = choices_.below(mostElements);
    if (!parent) return;
    const AttrType untouched = parent->untouchedType(index);
    attempt([&] {
        const Input* const child = parent->inputAt(index);
        require(parent->touchedAt(index) == child, "a child that is not in its place");
        const bool isNew = isType(untouched) && untouched != AttrType::Null;
        require(!isNew || child->type() == untouched, "an element of another type");
    });
}

void Machine::declare() {
    Input* const target = input();
    AttrData declaration = AttrData::declareArray(chosenAttrType(choices_));
    if (choices_.flag()) declaration = AttrData::declareBuffer(chosenDataType(choices_));
    if (target) attempt([&] { target->set(declaration); });
}

void Machine::declareElements() {
    Input* const target = input();
    AttrData declaration = AttrData::declareArray(chosenAttrType(choices_));
    if (choices_.flag()) declaration = AttrData::declareBuffer(chosenDataType(choices_));
    if (target) attempt([&] { target->declareElements(declaration); });
}

// --- Values

// Of the input's type as a rule.
void Machine::assign() {
    Input* const target = input();
    if (!target) return;
    const AttrType other = chosenAttrType(choices_);
    const AttrType type = choices_.below(8) == 0 ? other : target->type();
    const AttrData value = chosenValue(choices_, type);
    attemptParts([&] {
        const bool isTaken = target->assign(value);
        require(!isTaken || type == target->type(), "a value of another type");
    });
}

void Machine::assignOwn() {
    Input* const target = input();
    if (target) attempt([&] { target->assign(target->value()); });
}

void Machine::assignClone() {
    const Input* const source = input();
    Input* const target = source ? input() : nullptr;
    if (target) attempt([&] { target->assign(source->value().clone()); });
}

void Machine::clone() {
    const Input* const source = input();
    if (source) attempt([&] { scene_->discard(source->value().clone()); });
}

// --- Links

void Machine::connect() {
    Input* const target = input();
    Node* const source = node();
    const String name = chosenName(choices_, Named::Output);
    if (!target || !source) return;
    Output* const output = source->output(name);
    attempt([&] { target->connect(output); });
    require(hasFailed() || target->connection() == output, "a connection to something else");
}

void Machine::disconnect() {
    Input* const target = input();
    if (!target) return;
    attempt([&] { target->disconnect(); });
    require(!target->connection(), "a connection that is cut");
}

void Machine::setNode() {
    Input* const target = input();
    Node* const referred = choices_.flag() ? node() : nullptr;
    if (!target) return;
    const bool becomesNode = target->type() == AttrType::Null && referred;
    const AttrType type = becomesNode ? AttrType::Node : target->type();
    attempt([&] { target->setNode(referred); });
    if (hasFailed()) return;
    require(target->nodeReference() == referred, "a reference to something else");
    require(target->type() == type, "an input that a reference gives another type");
}

// --- Holding and looking

void Machine::retain() {
    Input* const kept = input();
    if (kept && held_.size() < mostHeld) held_.emplace_back(kept);
}

void Machine::release() {
    if (held_.empty()) return;
    std::swap(held_[choices_.below(mostHeld) % held_.size()], held_.back());
    held_.pop_back();
}

void Machine::look() {
    const Input* const seen = input();
    if (!seen) return;
    attempt([&] {
        static_cast<void>(seen->fullName());
        static_cast<void>(seen->typeName());
        static_cast<void>(seen->enumeration());
        for (unsigned long i = 0; i <= seen->inputCount(); ++i)
            static_cast<void>(seen->valueAt(i));
        if (seen->type() == AttrType::String) static_cast<void>(seen->asText());
        if (seen->isBuffer()) static_cast<void>(seen->asBuffer());
    });
}

// --- Documents

void Machine::read() {
    constexpr unsigned longest = 64;
    const unsigned byte = choices_.byte();
    const bool isOwn = byte >= std::size(documents);
    const String text(isOwn ? choices_.text(byte % longest) : documents[byte]);
    mayHideNodes_ = true;
    removing([&] {
        bool isRead = false;
        const Ending ending = endingOf([&] { isRead = readsIt(*scene_, text); }, fault_);
        const bool isRefused = ending == Ending::Done && !isRead;
        requireTold(ending, isRefused && kvt::test::firstFailed() == Allocation::Calloc);
    });
    requireWhole();
}

void Machine::comment() {
    const String text = chosenName(choices_, Named::Input);
    attempt([&] { scene_->pushFileComment(text); });
    if (choices_.flag()) scene_->clearComments();
    scene_->setFileTime(text);
}

void Machine::limit() {
    scene_->setElementLimit(4UL * choices_.byte());
    scene_->setBufferLimit(16UL * choices_.byte());
}

// --- Inputs

// Made once and kept: what is left behind an input is none of these. And memory does fail here.
bool warmUp() {
    Scene scene;
    readsIt(scene, String(everything));
    kvt::fuzz::dumpedText(scene, false);
    kvt::fuzz::dumpedJson(scene, false);
    ko::mirel_sdk::impl::registerInputRename("t", "x", "y");
    ko::mirel_sdk::impl::registerOutputRename("t", "x", "y");
    ko::mirel_sdk::impl::clearRenames();
    const FailingMemory memory(0, Failing::FromThenOn);
    require(endingOf([] { AttrData::ofText("text"); }) == Ending::BadAlloc, "malloc never fails");
    require(endingOf([] { AttrData::ofBuffer(ko::DataType::Int32, 1); }) == Ending::BadAlloc,
            "calloc never fails");
    require(endingOf([] { const Scene another; }) == Ending::BadAlloc, "new never fails");
    return true;
}

void run(std::string_view input) {
    Choices choices(input);
    Machine machine(choices);
    for (unsigned left = mostOperations; left > 0 && choices.areLeft(); --left)
        machine.step();
    machine.end();
    ko::mirel_sdk::impl::clearRenames();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isWarm = warmUp();
    const unsigned long before = kvt::test::liveBlocks();
    run(kvt::fuzz::textOf(data, size));
    require(isWarm && kvt::test::liveBlocks() == before, "blocks that nobody frees");
    return 0;
}
