#include "readers.h"

#include <fast_float/fast_float.h>
#include <rapidjson/document.h>
#include <simdjson.h>

#include <charconv>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

#include "kvt.h"

namespace bench {

namespace {

using ko::mirel_sdk::impl::Scene;

static_assert(jsonPadding >= simdjson::SIMDJSON_PADDING);

void require(bool wasRead, const char* reader) {
    if (!wasRead) throw std::runtime_error(std::string(reader) + " did not read its document");
}

// --- Bare loops ---------------------------------------------------------------------------------

struct StdConvert {
    template <class T>
    std::from_chars_result operator()(const char* from, const char* end, T& number) const {
        return std::from_chars(from, end, number);
    }
};

// That library converts reals only.
struct FastConvert {
    template <class T>
    auto operator()(const char* from, const char* end, T& number) const {
        if constexpr (std::is_floating_point_v<T>) {
            return fast_float::from_chars(from, end, number);
        } else {
            return std::from_chars(from, end, number);
        }
    }
};

bool isSeparator(char c) { return c == ' ' || c == ',' || c == '\n'; }

template <class T, class Convert>
Result convertAll(std::string_view text, unsigned long count, Convert convert) {
    std::shared_ptr<T[]> numbers(new T[count]);
    const char* at = text.data();
    const char* const end = at + text.size();
    unsigned long converted = 0;
    while (at != end) {
        if (isSeparator(*at)) {
            ++at;
            continue;
        }
        const auto result = convert(at, end, numbers[static_cast<std::ptrdiff_t>(converted)]);
        require(result.ec == std::errc(), "a loop over numbers");
        at = result.ptr;
        ++converted;
    }
    require(converted == count, "a loop over numbers");
    return numbers;
}

template <class Convert>
Result convertBuffer(std::string_view text, const Numbers& numbers, Convert convert) {
    switch (numbers.type) {
        case Scalar::Float: return convertAll<float>(text, numbers.count, convert);
        case Scalar::UInt32: return convertAll<std::uint32_t>(text, numbers.count, convert);
        case Scalar::Int32: return convertAll<std::int32_t>(text, numbers.count, convert);
        default: return convertAll<std::uint8_t>(text, numbers.count, convert);
    }
}

template <class Convert>
Result convertBuffers(const Content& content, Convert convert) {
    auto buffers = std::make_shared<std::vector<Result>>();
    for (const Numbers& numbers : content.numbers)
        buffers->push_back(convertBuffer(content.kvt.view().substr(numbers.begin, numbers.size),
                                         numbers, convert));
    return buffers;
}

// --- Documents ----------------------------------------------------------------------------------

template <unsigned flags>
Result readRapidJson(const Content& content) {
    auto document = std::make_shared<rapidjson::Document>();
    document->Parse<flags>(content.json.data(), content.json.size());
    require(!document->HasParseError(), "RapidJSON");
    return document;
}

Result checked(std::shared_ptr<Scene> scene, unsigned long nodes) {
    require(scene->nodeCount() == nodes, "kvt");
    return scene;
}

}  // namespace

Result readFile(const std::string& path, unsigned long nodes) {
    return checked(sceneOfFile(path), nodes);
}

Result readText(const Content& content) { return checked(sceneOfText(content.kvt), content.nodes); }

Result stdFromChars(const Content& content) { return convertBuffers(content, StdConvert()); }

Result fastFloat(const Content& content) { return convertBuffers(content, FastConvert()); }

Result simdJson(const Content& content) {
    auto parser = std::make_shared<simdjson::dom::parser>();
    const auto document = parser->parse(content.json.data(), content.json.size(), false);
    require(document.error() == simdjson::SUCCESS, "simdjson");
    return parser;
}

Result rapidJson(const Content& content) {
    return readRapidJson<rapidjson::kParseDefaultFlags>(content);
}

Result rapidJsonExact(const Content& content) {
    return readRapidJson<rapidjson::kParseFullPrecisionFlag>(content);
}

Result nlohmannJson(const Content& content) {
    return std::make_shared<nlohmann::json>(nlohmann::json::parse(content.json));
}

}  // namespace bench
