// The contests of the benchmark, and the documents that they are about.
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "content.h"
#include "contest.h"
#include "files.h"
#include "table.h"

namespace bench {

// A contest between this library and an older one, each in a program of its own that takes
// `options`.
struct OlderContest {
    const char* name;
    const char* document;
    const char* options;
    Goal goal;
};

class Suite {
  public:
    // A tenth of the sizes if `isQuick`. `comparesOlder` asks for the contests with the older
    // library that the program `kvt-bench-older` was built with.
    Suite(bool isQuick, bool comparesOlder)
        : divisor_(isQuick ? 10 : 1), comparesOlder_(comparesOlder) {}

    // Runs the contests whose names match; false when there is none.
    bool run(const std::regex& only);
    // What came of them.
    void print(std::ostream& out) const;
    // One of the documents by name. Throws std::out_of_range when there is none.
    Content document(const std::string& name) const;

  private:
    using Make = Content (*)(unsigned long);
    using Named = std::pair<std::string, std::function<void()>>;

    std::vector<Named> contests();
    void meshContest();
    void shuffledContest();
    void integerContest();
    void statementContest();
    void sceneContest();
    void growthContest(const std::string& name, Make make, bool hasThird, Goal limit);
    void byteContest();
    void memoryContest();
    void olderContest(const OlderContest& older);

    // What every contest over one document has.
    void addOurs(Contest& contest, const std::string& name, const Content& content);
    static void addDocumentPeers(Contest& contest, const std::string& name, const Content& content);
    static void addLoops(Contest& contest, const std::string& name, const Content& content);

    // The document in a file that stays in the system's cache until the next one comes.
    std::string fileOf(const Content& content);
    void measure(Contest& contest);

    unsigned long divisor_;
    bool comparesOlder_;
    TemporaryDirectory directory_;
    std::unique_ptr<CachedFile> file_;
    Table table_;
    PassTimes total_;
};

}  // namespace bench
