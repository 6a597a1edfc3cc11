// The arguments of the `kvt` tool.
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "outofmemory.h"

namespace {

constexpr const char* exitStatusHelp =
    "Exit status: 0 when the document is good, 1 when it is not, 2 when an argument is wrong,\n"
    "a file cannot be read, something cannot be written, or there is too little memory.\n"
    "An output that its reader closes ends the command quietly, with 0.";

struct Options {
    kvt::CheckOptions check;
    kvt::DumpOptions dump;
};

// The argument parser takes "[a,b]" for a list and "{}" for nothing. A NUL after such a file name,
// which no argument can hold, keeps it a name.
constexpr char guard = '\0';

bool looksLikeList(std::string_view argument) {
    return !argument.empty() && (argument.front() == '[' || argument.front() == '{');
}

void removeGuard(std::string& text) {
    text.erase(std::remove(text.begin(), text.end(), guard), text.end());
}

// The arguments as the parser wants them, the last one first.
std::vector<std::string> reversedArguments(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        arguments.emplace_back(argv[i]);
        if (looksLikeList(arguments.back())) arguments.back().push_back(guard);
    }
    return arguments;
}

// The argument parser would read "010" as eight.
unsigned long limitOf(const std::string& option, const std::string& text) {
    unsigned long limit = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, limit);
    if (result.ec != std::errc() || result.ptr != end) {
        throw CLI::ValidationError(option, "not a whole number below 2^64: " + text);
    }
    return limit;
}

// Standard input can be read once.
void ensureOneStandardInput(const std::vector<std::string>& files) {
    if (std::count(files.begin(), files.end(), "-") > 1) {
        throw CLI::ValidationError("FILE", "- may be given once");
    }
}

void addLimit(CLI::App& command, const std::string& option, const char* type, unsigned long& limit,
              const std::string& help) {
    const auto set = [option, &limit](const std::string& text) { limit = limitOf(option, text); };
    command.add_option_function<std::string>(option, set, help)->type_name(type);
}

void addLimits(CLI::App& command, kvt::ReadLimits& limits) {
    addLimit(command, "--buffer-limit", "BYTES", limits.bufferBytes,
             "Refuse buffers of more than so many bytes");
    addLimit(command, "--element-limit", "N", limits.elements,
             "Refuse more than so many array elements in a document (" +
                 std::to_string(limits.elements) + " without it)");
}

void declare(CLI::App& app, Options& options) {
    app.footer(exitStatusHelp);
    app.set_version_flag("--version", "kvt " KVT_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.require_subcommand(1);

    CLI::App* const check = app.add_subcommand("check", "Read documents and report what is wrong");
    check->add_option("FILE", options.check.files, "The documents; - is standard input")
        ->required();
    check->callback([&options] { ensureOneStandardInput(options.check.files); });
    check->add_flag("--werror", options.check.warningsAreErrors, "Treat warnings as errors");
    addLimits(*check, options.check.limits);

    CLI::App* const dump = app.add_subcommand("dump", "Print the scene that a document yields");
    dump->add_option("FILE", options.dump.file, "The document; - is standard input")->required();
    dump->add_flag("--json", options.dump.json, "Print one JSON object");
    addLimits(*dump, options.dump.limits);
}

kvt::ExitStatus print(const std::string& text) { return kvt::print(text, stdout, stderr); }

// The first argument that the parser could not use; empty when there is none. "--" ends options.
std::string firstUnknown(const CLI::App& app) {
    const std::vector<std::string> unknown = app.remaining(true);
    const auto isArgument = [](const std::string& text) { return text != "--"; };
    const auto first = std::find_if(unknown.begin(), unknown.end(), isArgument);
    return first == unknown.end() ? std::string() : *first;
}

// What is wrong with the arguments, and where to read more.
std::string usageError(const CLI::App& app, const CLI::ParseError& error) {
    const bool hasCommand = !app.get_subcommands().empty();
    const std::string unknown = firstUnknown(app);
    std::string message = hasCommand ? error.what() : "a command is required";
    if (!unknown.empty()) {
        const bool isOption = unknown.front() == '-';
        const char* const wrong = isOption ? "unknown option: " : "unexpected argument: ";
        message = (hasCommand || isOption ? wrong : "unknown command: ") + unknown;
    }
    removeGuard(message);
    return message + " (see kvt --help)";
}

kvt::ExitStatus run(int argc, const char* const* argv) {
    CLI::App app("Reads KVT scene documents.", "kvt");
    Options options;
    declare(app, options);
    try {
        app.parse(reversedArguments(argc, argv));
    } catch (const CLI::CallForHelp&) {
        return print(app.help());
    } catch (const CLI::CallForVersion& version) {
        return print(std::string(version.what()) + '\n');
    } catch (const CLI::ParseError& error) {
        kvt::reportFailure(usageError(app, error), stderr);
        return kvt::CannotRun;
    }
    for (std::string& file : options.check.files)
        removeGuard(file);
    removeGuard(options.dump.file);
    if (app.got_subcommand("check")) return kvt::check(options.check, stderr);
    return kvt::dump(options.dump, stdout, stderr);
}

// A reader that has gone and a file that may not grow make a write fail, and nothing else.
void outliveFailedWrites() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

// First of all: the argument parser has objects that take memory before `main`.
[[gnu::constructor(101)]] void start() { kvt::endWhenOutOfMemory(); }

}  // namespace

int main(int argc, char** argv) {
    outliveFailedWrites();
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        kvt::endOutOfMemory();
    } catch (const std::exception& e) {
        kvt::reportFailure(e.what(), stderr);
    }
    return kvt::CannotRun;
}
