#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

#include <ko/kvtparser.h>

namespace impl = ko::mirel_sdk::impl;
namespace interfaces = ko::mirel_sdk::interfaces;

namespace {

constexpr const char* document = "sphere ball:\n.radius = 2.5;\n";

// Classes of the program's own, of those that the library leaves open.
class Text final : public impl::Lexer {
  public:
    explicit Text(std::string_view text) : text_(text) { start(nextRun()); }
    signed char consume() override { return step(); }

  private:
    std::string_view nextRun() override { return std::exchange(text_, {}); }

    std::string_view text_;
};

class CountingScene final : public impl::Scene {
  public:
    impl::Node* createNode(ko::String type, ko::String name, ko::String label) override {
        ++created;
        return Scene::createNode(type, name, label);
    }

    int created = 0;
};

struct Stop {};

double radiusOf(const impl::Scene& scene) {
    const impl::Node* ball = scene.findNode("ball");
    const impl::Input* radius = ball ? ball->input("radius") : nullptr;
    return radius ? radius->asReal() : 0;
}

bool readsADocument() {
    impl::Scene scene;
    return impl::parseString(&scene, document) && radiusOf(scene) == 2.5;
}

bool readsByClassesOfItsOwn() {
    CountingScene scene;
    Text text(document);
    return impl::KvtParser().parse(&scene, &text) && scene.created == 1 && radiusOf(scene) == 2.5;
}

bool knowsTheClassesOfObjects() {
    impl::Scene scene;
    interfaces::IScene* const asInterface = &scene;
    impl::StringLexer text(document);
    impl::Lexer* const asLexer = &text;
    return dynamic_cast<impl::Scene*>(asInterface) == &scene &&
           !dynamic_cast<CountingScene*>(asInterface) && !dynamic_cast<impl::FileLexer*>(asLexer);
}

template <class Exception, class Operation>
bool throws(Operation operation) {
    try {
        operation();
    } catch (const Exception&) {
        return true;
    } catch (const std::exception&) {
        return false;
    }
    return false;
}

bool catchesWhatTheLibraryThrows() {
    impl::Scene scene;
    impl::parseString(&scene, "t ball: .radius = true;");
    return throws<std::invalid_argument>([&] { radiusOf(scene); }) &&
           throws<std::runtime_error>([&] { impl::parseString(&scene, "@"); });
}

bool catchesWhatItThrowsThroughTheLibrary() {
    impl::Scene scene;
    const ko::LogCapture stopAtAMessage([](const ko::LogRecord&) { throw Stop(); });
    return throws<Stop>([&] { impl::parseString(&scene, "t n: .x = 1; .x = 2.5;"); });
}

}  // namespace

int main() {
    const std::pair<const char*, bool (*)()> checks[] = {
        {"reads a document", readsADocument},
        {"reads by classes of its own", readsByClassesOfItsOwn},
        {"knows the classes of objects", knowsTheClassesOfObjects},
        {"catches what the library throws", catchesWhatTheLibraryThrows},
        {"catches what it throws through the library", catchesWhatItThrowsThroughTheLibrary},
    };
    int failed = 0;
    for (const auto& [behaviour, holds] : checks) {
        if (holds()) continue;
        std::printf("the program no longer %s\n", behaviour);
        failed = 1;
    }
    return failed;
}
