// Reads documents for the tests and keeps all that came of it, in the form of the golden files.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <ko/scene.h>

namespace kvt::test {

struct Reading {
    // A line for each message as the default sink writes it, "warning: ..." or "error: ...", and a
    // last line that tells how the reading ended: "ok", "failed" or "thrown: MESSAGE".
    std::string log;
    bool ok = false;
};

// Calls an entry point and collects what it logs, returns and throws.
Reading collect(const std::function<bool()>& entryPoint);

// Reads `text` through the entry point for texts, or as a file in memory.
Reading readText(ko::mirel_sdk::interfaces::IScene* scene, const std::string& text);
Reading readBytes(ko::mirel_sdk::interfaces::IScene* scene, const std::string& text,
                  bool keepHeader = false);

// The scene as `kvt dump --json` prints it.
std::string jsonOf(const ko::mirel_sdk::impl::Scene& scene, bool ok);
// The scene as `kvt dump` prints it.
std::string textOf(const ko::mirel_sdk::impl::Scene& scene, bool ok);

// The documents of a folder, in the order of their names: the golden ones, or the examples.
std::vector<std::filesystem::path> documents(
    const std::filesystem::path& folder = KVT_TEST_DOCUMENTS);

std::string contents(const std::filesystem::path& file);

// Registers the node types that the golden documents use; their README describes them.
void registerNodeTypes(ko::mirel_sdk::impl::Scene& scene);
// Likewise, beside the renames that are there already; for any number of threads.
void addNodeTypes(ko::mirel_sdk::impl::Scene& scene);

}  // namespace kvt::test
