// The end of a document: what waits is connected, or set, or told of.
#include <ko/kvtparser.h>

#include <utility>

#include "foundation/messages.h"
#include "reader/waitinglist.h"
#include "scene/ahead.h"
#include "scene/renames.h"

namespace ko::mirel_sdk::impl {

using interfaces::IInput;

namespace {

constexpr unsigned long batchSize = 64;

// Visits what waits a batch at a time: what is looked up all over a large scene then waits for
// memory side by side.
template <class Entry, class List, class Visit>
void forEachBatch(const List& waiting, Visit visit) {
    ds::Vector<const Entry*> batch;
    waiting.forEach([&](const Entry& entry) {
        batch.push_back(&entry);
        if (batch.size() < batchSize) return;
        visit(batch);
        batch.clear();
    });
    if (!batch.isEmpty()) visit(batch);
}

// The number of a name that is mostly the one asked for before.
class LastName {
  public:
    Symbol in(Names& names, const String& name) {
        if (name_ != name) {
            symbol_ = names.intern(name);
            name_ = name;
        }
        return symbol_;
    }

  private:
    String name_;
    Symbol symbol_ = 0;
};

// Calls `visit(entry)` for each of those that lead nowhere, in the order in which a map of inputs
// has them: by the lowest byte of the address, then as they were assigned.
template <class Entry, class List, class LeadsNowhere, class Visit>
void forEachAstray(const List& waiting, LeadsNowhere leadsNowhere, Visit visit) {
    ds::HashMap<IInput*, const Entry*> astray;
    waiting.forEach([&](const Entry& entry) {
        if (leadsNowhere(entry.refersTo)) astray.insert(entry.input, &entry);
    });
    astray.forEach([&visit](const auto& node) { visit(*node.value); });
}

}  // namespace

// output = node "." name, whatever the tokens say that they are: what is meant is the text
KvtParser::OutputName::OutputName(const ds::Vector<Token>& path) {
    const auto isName = [](const String& text) {
        return !text.isEmpty() && text.find('.', false, 0) == String::npos;
    };
    const bool isShape =
        path.size() == 3 && isName(path[0].text) && path[1].text == "." && isName(path[2].text);
    node = isShape ? path[0].text : collapse(path);
    if (isShape) output = path[2].text;
}

// Two parts name a node and an output too, as in ".node.output" or "node.output[0]".
StringVector KvtParser::OutputName::parts() const { return node.split('.', true, false); }

bool KvtParser::OutputName::isNull() const {
    return output.isEmpty() && node.toLower(true).trim(true, true) == "null";
}

KvtParser::NodeName::NodeName(const Token& reference) {
    if (reference.type != Token::Null) node = reference.text;
}

// What was kept whole, which only parsers that are driven by hand do, is resolved by its names too.
KvtParser::Outputs KvtParser::takeOutputs() {
    Outputs waiting = std::move(*outputsToConnect_);
    waiting.settle();
    pendingConnections.forEachInserted(
        [&waiting](const auto& entry) { waiting.add(entry.key, true, entry.value.refPath); });
    return waiting;
}

KvtParser::Nodes KvtParser::takeNodes() {
    Nodes waiting = std::move(*nodesToSet_);
    waiting.settle();
    pendingIdentifiers.forEachInserted(
        [&waiting](const auto& entry) { waiting.add(entry.key, true, entry.value.token4); });
    return waiting;
}

// Everything is connected and set before anything is told: a log sink that throws ends this.
void KvtParser::resolve() {
    const Outputs outputs = takeOutputs();
    const Nodes nodes = takeNodes();
    const bool allConnected = connectAll(outputs);
    const bool allSet = setAll(nodes);
    if (!allConnected) tellUnconnected(outputs);
    if (!allSet) tellUnset(nodes);
}

void KvtParser::resolveConnections() {
    const Outputs outputs = takeOutputs();
    if (!connectAll(outputs)) tellUnconnected(outputs);
}

void KvtParser::resolveIdentifiers() {
    const Nodes nodes = takeNodes();
    if (!setAll(nodes)) tellUnset(nodes);
}

// True when all of it was there.
bool KvtParser::connectAll(const Outputs& waiting) {
    bool allConnected = true;
    forEachBatch<Waiting<OutputName>>(waiting, [&](const auto& batch) {
        allConnected = connectWhatIsThere(batch) && allConnected;
    });
    return allConnected;
}

void KvtParser::tellUnconnected(const Outputs& waiting) {
    const auto leadsNowhere = [this](const OutputName& name) {
        Node* const node = nodeOf(name);
        return !(node && outputOf(*node, name)) && !name.isNull();
    };
    forEachAstray<Waiting<OutputName>>(waiting, leadsNowhere, [this](const auto& entry) {
        warnUnconnected(*entry.input, entry.refersTo);
    });
}

// The nodes that a batch names, null where they are not there. Each round touches what the one
// before it asked memory for.
template <class Name>
void KvtParser::findNodes(const Batch<Name>& batch, Node** nodes) {
    const Scene* const scene = plainScene();
    unsigned long hashes[batchSize];
    for (unsigned long i = 0; scene && i < batch.size(); ++i) {
        hashes[i] = batch[i]->refersTo.node.hash();
        Ahead::write(batch[i]->input);
        Ahead::place(*scene, hashes[i]);
    }
    for (unsigned long i = 0; scene && i < batch.size(); ++i)
        nodes[i] = Ahead::node(*scene, hashes[i]);
    for (unsigned long i = 0; i < batch.size(); ++i) {
        const Name& name = batch[i]->refersTo;
        const bool isThere = scene && name.isOfNode() && nodes[i] && nodes[i]->name() == name.node;
        if (!isThere) nodes[i] = nodeOf(name);
    }
}

// Likewise.
bool KvtParser::connectWhatIsThere(const Batch<OutputName>& batch) {
    Node* nodes[batchSize];
    findNodes(batch, nodes);
    Scene* const scene = renames::any() ? nullptr : plainScene();
    LastName last;
    const auto outputNamed = [&](Node& node, const OutputName& name) {
        if (!scene || !name.isOfNode()) return outputOf(node, name);
        return node.output(last.in(scene->store_->pool.names(), name.output));
    };
    Output* outputs[batchSize];
    for (unsigned long i = 0; i < batch.size(); ++i) {
        outputs[i] = nodes[i] ? outputNamed(*nodes[i], batch[i]->refersTo) : nullptr;
        if (outputs[i]) Ahead::connection(*outputs[i]);
    }
    bool allConnected = true;
    for (unsigned long i = 0; i < batch.size(); ++i) {
        const bool isNull = !outputs[i] && batch[i]->refersTo.isNull();
        if (outputs[i]) batch[i]->input->connect(outputs[i]);
        if (isNull) batch[i]->input->disconnect();
        allConnected = allConnected && (outputs[i] || isNull);
    }
    return allConnected;
}

Node* KvtParser::nodeOf(const OutputName& name) {
    if (!name.output.isEmpty()) return findNode(name.node);
    const StringVector parts = name.parts();
    return parts.size() == 2 ? findNode(parts[0]) : nullptr;
}

// Of the node that the reference names.
Output* KvtParser::outputOf(Node& node, const OutputName& name) {
    const auto found = [&node](const String& written) {
        return node.output(updateOutputName(node.type(), written));
    };
    return name.output.isEmpty() ? found(name.parts()[1]) : found(name.output);
}

void KvtParser::warnUnconnected(IInput& input, const OutputName& name) {
    const String text = name.output.isEmpty() ? name.node : name.node + "." + name.output;
    const StringVector parts = text.split('.', true, false);
    if (parts.size() != 2) {
        tell(say<Message::InvalidOutput>(text.buf()));
    } else if (!nodeOf(name)) {
        tell(say<Message::UnknownNodeToConnect>(parts[0].buf(), input.fullName().buf()));
    } else {
        tell(say<Message::UnknownOutput>(text.buf(), input.fullName().buf()));
    }
}

bool KvtParser::setAll(const Nodes& waiting) {
    bool allSet = true;
    forEachBatch<Waiting<NodeName>>(
        waiting, [&](const auto& batch) { allSet = setWhatIsThere(batch) && allSet; });
    return allSet;
}

void KvtParser::tellUnset(const Nodes& waiting) {
    const auto leadsNowhere = [this](const NodeName& name) {
        return !name.isNull() && !nodeOf(name);
    };
    forEachAstray<Waiting<NodeName>>(waiting, leadsNowhere, [this](const auto& entry) {
        tell(say<Message::UnknownNodeToAssign>(entry.refersTo.node.buf(),
                                               entry.input->fullName().buf()));
    });
}

bool KvtParser::setWhatIsThere(const Batch<NodeName>& batch) {
    Node* nodes[batchSize];
    findNodes(batch, nodes);
    for (unsigned long i = 0; i < batch.size(); ++i)
        if (nodes[i]) Ahead::reference(*nodes[i]);
    bool allSet = true;
    for (unsigned long i = 0; i < batch.size(); ++i) {
        const bool isKnown = nodes[i] || batch[i]->refersTo.isNull();
        if (isKnown) batch[i]->input->setNode(nodes[i]);
        allSet = allSet && isKnown;
    }
    return allSet;
}

Node* KvtParser::nodeOf(const NodeName& name) {
    return name.isNull() ? nullptr : findNode(name.node);
}

}  // namespace ko::mirel_sdk::impl
