// Several documents into several scenes, each along another way of reading, with changes before
// each document that the input chooses: node types, renames, removals, limits, nodes made in code.
// The scenes and their messages stay the same, the first read by the plain code for long runs.
//
// An input is a row of changes and documents; the byte 0xFF, which ends a document anyway, is
// after each.
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <cstdint>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bulk/bulk.h"
#include "choices.h"
#include "consistency.h"
#include "lexers.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::String;
using ko::bulk::Path;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using kvt::fuzz::Blocks;
using kvt::fuzz::Characters;
using kvt::fuzz::Choices;
using kvt::fuzz::chosenAttrType;
using kvt::fuzz::chosenInput;
using kvt::fuzz::chosenName;
using kvt::fuzz::chosenNode;
using kvt::fuzz::chosenValue;
using kvt::fuzz::Declaration;
using kvt::fuzz::Named;
using kvt::fuzz::Reading;
using kvt::fuzz::require;

constexpr char separator = '\xFF';
// More add time, but nothing new.
constexpr int mostDocuments = 4;
constexpr unsigned mostChanges = 8;
constexpr unsigned mostDeclarations = 8;
constexpr unsigned mostElements = 32;

// --- Changes. Each takes as many choices whatever the scene, so that all scenes change alike.

void registerNodeType(Scene& scene, Choices& choices) {
    NodeType type(chosenName(choices, Named::Type));
    for (unsigned left = choices.below(mostDeclarations); left > 0; --left)
        Declaration(choices).addTo(type);
    scene.registerType(std::move(type));
}

void renameInput(Scene& /*scene*/, Choices& choices) {
    const String type = chosenName(choices, Named::Type);
    const String old = chosenName(choices, Named::Input);
    ko::mirel_sdk::impl::registerInputRename(type, old, chosenName(choices, Named::Input));
}

void renameOutput(Scene& /*scene*/, Choices& choices) {
    const String type = chosenName(choices, Named::Type);
    const String old = chosenName(choices, Named::Output);
    ko::mirel_sdk::impl::registerOutputRename(type, old, chosenName(choices, Named::Output));
}

void forgetRenames(Scene& /*scene*/, Choices& /*choices*/) { ko::mirel_sdk::impl::clearRenames(); }

void removeNode(Scene& scene, Choices& choices) {
    const String name = chosenName(choices, Named::Node);
    const Node* const node = scene.findNode(name);
    scene.removeNode(name);
    if (node) kvt::fuzz::requireCut(*node);
}

// Those whose bit is set, while they are walked.
void removeSome(Scene& scene, Choices& choices) {
    const unsigned bits = choices.byte();
    unsigned i = 0;
    for (const Node* const node : scene.nodes())
        if (bits >> (i++ % 8) & 1U) scene.removeNode(node->name());
}

void purge(Scene& scene, Choices& /*choices*/) { kvt::fuzz::purge(scene); }

void createNode(Scene& scene, Choices& choices) {
    const String type = chosenName(choices, Named::Type);
    const String name = chosenName(choices, Named::Node);
    scene.createNode(type, name, chosenName(choices, Named::Node));
}

void defineNode(Scene& scene, Choices& choices) {
    scene.defineNode(chosenName(choices, Named::Type));
}

void limitElements(Scene& scene, Choices& choices) { scene.setElementLimit(choices.byte()); }

void limitBuffers(Scene& scene, Choices& choices) { scene.setBufferLimit(8UL * choices.byte()); }

void createInput(Scene& scene, Choices& choices) {
    Node* const node = chosenNode(choices, scene);
    const String name = chosenName(choices, Named::Input);
    const AttrType type = chosenAttrType(choices);
    if (node) node->findOrCreate(name, type, chosenAttrType(choices));
}

Input* inputIn(Scene& scene, Choices& choices) {
    Node* const node = chosenNode(choices, scene);
    return node ? chosenInput(choices, *node) : nullptr;
}

void createChild(Scene& scene, Choices& choices) {
    Input* const input = inputIn(scene, choices);
    const String name = chosenName(choices, Named::Input);
    const AttrType type = chosenAttrType(choices);
    if (input) input->findOrCreate(name, type, chosenAttrType(choices));
}

void growArray(Scene& scene, Choices& choices) {
    Input* const input = inputIn(scene, choices);
    const unsigned index = choices.below(mostElements);
    if (!input) return;
    try {
        input->growTo(index);
        input->inputAt(index);
    } catch (const std::runtime_error&) {  // the limit
    }
}

void assignValue(Scene& scene, Choices& choices) {
    Input* const input = inputIn(scene, choices);
    if (input) input->assign(chosenValue(choices, input->type()));
}

void connect(Scene& scene, Choices& choices) {
    Input* const input = inputIn(scene, choices);
    Node* const node = chosenNode(choices, scene);
    const String name = chosenName(choices, Named::Output);
    if (input) input->connect(node ? node->output(name) : nullptr);
}

void setNode(Scene& scene, Choices& choices) {
    Input* const input = inputIn(scene, choices);
    if (input) input->setNode(chosenNode(choices, scene));
}

void cutLinks(Scene& scene, Choices& choices) {
    Input* const input = inputIn(scene, choices);
    if (!input) return;
    input->disconnect();
    input->setNode(nullptr);
}

using Change = void (*)(Scene&, Choices&);

constexpr Change changes[] = {registerNodeType, registerNodeType, renameInput,   renameOutput,
                              forgetRenames,    removeNode,       removeSome,    purge,
                              createNode,       defineNode,       limitElements, limitBuffers,
                              createInput,      createChild,      growArray,     assignValue,
                              connect,          setNode,          cutLinks};

// --- Ways of reading

std::unique_ptr<Lexer> lexerOver(std::string_view text, unsigned kind) {
    switch (kind % 3) {
        case 0: return std::make_unique<Blocks>(text, kvt::fuzz::fingerprint(text));
        case 1: return std::make_unique<Characters>(text);
        default: return std::make_unique<StringLexer>(String(text));
    }
}

// What `KvtParser::parse` does, from outside.
bool readByHand(Scene& scene, Lexer& lexer) {
    KvtParser parser;
    parser.prime(&scene, &lexer);
    try {
        while (parser.la(1) != Token::Eof) {
            if (kvt::fuzz::takeStatement(parser)) continue;
            parser.parseError("unrecognized token '%s'.", parser.lt(1).text.buf());
        }
        parser.resolveConnections();
        parser.resolveIdentifiers();
        return true;
    } catch (const std::runtime_error& error) {
        ko::logError("%s", error.what());
        return false;
    }
}

struct Document {
    std::string_view bytes;  // as in a file
    std::string_view text;
    bool keepHeader;
    unsigned choice;  // among similar ways
};

Reading readAsString(Scene& scene, const Document& document) {
    return kvt::fuzz::readText(scene, document.text);
}

Reading readAsFile(Scene& scene, const Document& document) {
    // Opening a file takes longer than reading a short one.
    const bool fromFile = document.choice % 4 == 0;
    return fromFile ? kvt::fuzz::readFile(scene, document.bytes, document.keepHeader)
                    : kvt::fuzz::readBytes(scene, document.bytes, document.keepHeader);
}

Reading readWithLexer(Scene& scene, const Document& document) {
    return kvt::fuzz::read([&] {
        const std::unique_ptr<Lexer> lexer = lexerOver(document.text, document.choice / 4);
        KvtParser parser;
        return parser.parse(&scene, lexer.get());
    });
}

Reading readStepwise(Scene& scene, const Document& document) {
    return kvt::fuzz::read([&] {
        const std::unique_ptr<Lexer> lexer = lexerOver(document.text, document.choice / 16);
        return readByHand(scene, *lexer);
    });
}

using Way = Reading (*)(Scene&, const Document&);

constexpr Way ways[] = {readAsString, readAsFile, readWithLexer, readStepwise};

// --- The session

// The same scene, once for each way of reading.
class Scenes {
  public:
    explicit Scenes(std::string_view input) {
        ko::mirel_sdk::impl::clearRenames();
        for (Scene& scene : scenes_)
            kvt::fuzz::prepare(scene, input);
    }

    void change(Choices& choices) {
        const Change chosen = changes[choices.below(std::size(changes))];
        const Choices before = choices;
        for (Scene& scene : scenes_) {
            choices = before;
            chosen(scene, choices);
        }
    }

    void read(const Document& document) {
        ko::bulk::usePath(Path::Plain);
        const Outcome expected = outcomeOf(0, document);
        if (ko::bulk::hasPath(Path::Avx2)) ko::bulk::usePath(Path::Avx2);
        for (unsigned way = 1; way < std::size(ways); ++way) {
            const Outcome found = outcomeOf(way, document);
            require(expected.log == found.log, "different messages");
            require(expected.scene == found.scene, "different scenes");
        }
    }

    void end() {
        for (Scene& scene : scenes_)
            kvt::fuzz::purge(scene);
        kvt::fuzz::dumpedText(scenes_[0], true);
    }

  private:
    struct Outcome {
        std::vector<std::string> log;
        std::string scene;
    };

    Outcome outcomeOf(unsigned way, const Document& document) {
        Scene& scene = scenes_[way];
        if (!document.keepHeader) resetHeader(scene);
        const Reading reading = ways[way](scene, document);
        kvt::fuzz::requireConsistent(scene);
        return {reading.log, kvt::fuzz::dumpedJson(scene, reading.ok)};
    }

    // As reading a file does by itself.
    static void resetHeader(Scene& scene) {
        scene.clearComments();
        scene.setFileVersion(ko::mirel_sdk::impl::KVX_FILE_VERSION_1);
        scene.setFileTime("");
    }

    Scene scenes_[std::size(ways)];
};

Document takeDocument(Choices& choices) {
    const bool keepHeader = choices.flag();
    const unsigned choice = choices.byte();
    const std::string_view bytes = choices.until(separator);
    return {bytes, kvt::fuzz::withoutByteOrderMark(bytes), keepHeader, choice};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = kvt::fuzz::textOf(data, size);
    Choices choices(input);
    Scenes scenes(input);
    for (int documents = 0; documents < mostDocuments && choices.areLeft(); ++documents) {
        for (unsigned left = choices.below(mostChanges); left > 0; --left)
            scenes.change(choices);
        scenes.read(takeDocument(choices));
    }
    scenes.end();
    return 0;
}
