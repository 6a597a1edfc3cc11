// What the targets share: reading documents into scenes and telling what came of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <ko/kvtparser.h>
#include <ko/scene.h>

namespace kvt::fuzz {

// Ends the process with a message unless `holds`.
void require(bool holds, const char* what);

std::string_view textOf(const std::uint8_t* data, std::size_t size);
// A number that depends on every byte of the text.
std::uint64_t fingerprint(std::string_view text);

// Registers the node types of the test documents if `documents` name any of them, and sets limits
// that keep each reading short.
void prepare(ko::mirel_sdk::impl::Scene& scene, std::string_view documents);

// A line for each message, "warning: ..." or "error: ...".
using Log = std::vector<std::string>;

std::string lineOf(const ko::LogRecord& record);
// Whether a line is of those that are reported when the document is at its end, for what waited
// there. They come in no certain order; this sorts them.
bool isOfTheEnd(std::string_view line);
void sortEnd(Log& log);

// What an entry point did.
struct Reading {
    bool ok = false;
    // With a line for an exception, and a sorted end.
    Log log;
};

Reading read(const std::function<bool()>& entryPoint);
Reading readText(ko::mirel_sdk::impl::Scene& scene, std::string_view text);
// From memory, and from a file; a byte order mark is passed over.
Reading readBytes(ko::mirel_sdk::impl::Scene& scene, std::string_view bytes, bool keepHeader);
Reading readFile(ko::mirel_sdk::impl::Scene& scene, std::string_view bytes, bool keepHeader);
// Takes a statement, as the parser itself does; false when there is none.
bool takeStatement(ko::mirel_sdk::impl::KvtParser& parser);
// What is left of the bytes of a file.
std::string_view withoutByteOrderMark(std::string_view bytes);

// The scene as the tool shows it, in both forms. Ends the process when the form itself is broken.
std::string dumpedText(const ko::mirel_sdk::impl::Scene& scene, bool ok);
std::string dumpedJson(const ko::mirel_sdk::impl::Scene& scene, bool ok);

// Reads a document into a scene of its own and dumps that.
void readAndDump(std::string_view document);

}  // namespace kvt::fuzz
