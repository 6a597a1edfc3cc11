// The text as a number of every type, as a math value and as the numbers of a buffer, against an
// independent reading. What is refused leaves its target as it was. The first bytes are taken for
// reals as well, so that texts come up that lie as close as can be to halfway between two reals.
#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/math.h>
#include <ko/scene.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "number_reference.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::String;
using ko::mirel_sdk::impl::BufferView;
using ko::mirel_sdk::impl::Scene;
using kvt::fuzz::require;

// --- Single numbers

bool isSame(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return a == b && std::signbit(a) == std::signbit(b);
}

std::optional<float> referenceReal(std::string_view text, float /*type*/) {
    return kvt::fuzz::referenceFloat(text);
}
std::optional<double> referenceReal(std::string_view text, double /*type*/) {
    return kvt::fuzz::referenceDouble(text);
}

template <class Real>
void checkReal(const String& text) {
    constexpr Real untouched = Real(-12345.75);
    const std::optional<Real> expected = referenceReal(text.view(), Real());
    Real found = untouched;
    require(String::parse(text, found) == expected.has_value(), "a real that one side refuses");
    require(isSame(expected.value_or(untouched), found), "different reals");
}

// `number` with so many digits after the point.
template <class Real>
void checkPrinted(Real number, int digits) {
    if (!std::isfinite(number)) return;
    char text[64];
    std::snprintf(text, sizeof text, "%.*Le", digits, static_cast<long double>(number));
    checkReal<float>(String(text));
    checkReal<double>(String(text));
}

// A long double holds what lies halfway between two doubles.
template <class Real>
void checkAround(const std::uint8_t* bytes, int digits) {
    Real number = 0;
    std::memcpy(&number, bytes, sizeof number);
    const Real next = std::nextafter(number, std::numeric_limits<Real>::infinity());
    using Wider = std::conditional_t<std::is_same_v<Real, float>, double, long double>;
    checkPrinted(number, digits);
    checkPrinted((Wider(number) + Wider(next)) / 2, digits);
}

void checkBits(const std::uint8_t* bytes, std::size_t size) {
    constexpr int mostDigits = 40;
    if (size <= sizeof(double)) return;
    const int digits = bytes[sizeof(double)] % mostDigits;
    checkAround<float>(bytes, digits);
    checkAround<double>(bytes, digits);
}

void checkBool(const String& text) {
    const std::optional<bool> expected = kvt::fuzz::referenceBool(text.view());
    for (const bool before : {false, true}) {
        bool found = before;
        require(String::parse(text, found) == expected.has_value(), "a bool that one side refuses");
        require(expected.value_or(before) == found, "different bools");
    }
}

template <class Integer>
std::optional<Integer> referenceInteger(std::string_view text, int base) {
    using Limits = std::numeric_limits<Integer>;
    const auto value = kvt::fuzz::referenceInteger(text, base, Limits::min(), Limits::max());
    return value ? std::optional(static_cast<Integer>(*value)) : std::nullopt;
}

template <class Integer>
void checkInteger(const String& text) {
    constexpr Integer untouched = 77;
    for (const String::Radix radix :
         {String::Auto, String::Binary, String::Octal, String::Decimal, String::Hexadecimal}) {
        const std::optional<Integer> expected = referenceInteger<Integer>(text.view(), radix);
        Integer found = untouched;
        require(String::parse(text, found, radix) == expected.has_value(),
                "an integer that one side refuses");
        require(expected.value_or(untouched) == found, "different integers");
    }
}

template <class... Integer>
void checkIntegers(const String& text) {
    (checkInteger<Integer>(text), ...);
}

// --- Math values

std::vector<std::string_view> splitAt(std::string_view separators, std::string_view text) {
    std::vector<std::string_view> pieces;
    for (;;) {
        text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
        if (text.empty()) return pieces;
        pieces.push_back(text.substr(0, text.find_first_of(separators)));
        text.remove_prefix(pieces.back().size());
    }
}

// Reads the first `count` pieces into `components`; true when all were numbers.
bool referenceComponents(const std::vector<std::string_view>& pieces, std::size_t count,
                         double* components) {
    if (pieces.size() < count) return false;
    bool allRead = true;
    for (std::size_t i = 0; i < count; ++i) {
        const std::optional<double> number = kvt::fuzz::referenceDouble(pieces[i]);
        if (number) components[i] = *number;
        allRead = allRead && number.has_value();
    }
    return allRead;
}

// Four components, or three and an alpha of 1.
bool referenceColour(const std::vector<std::string_view>& pieces, double* components) {
    if (referenceComponents(pieces, 4, components)) return true;
    if (!referenceComponents(pieces, 3, components)) return false;
    components[3] = 1;
    return true;
}

template <class Value>
constexpr std::size_t componentsOf = sizeof(Value) / sizeof(double);

template <class Value>
bool referenceValue(const std::vector<std::string_view>& pieces, double* components) {
    if constexpr (std::is_same_v<Value, ko::math::RgbaT<double>>) {
        return referenceColour(pieces, components);
    } else {
        return referenceComponents(pieces, componentsOf<Value>, components);
    }
}

template <class Value>
void checkValue(const String& text, const std::vector<std::string_view>& pieces) {
    Value expected;
    std::fill(std::begin(expected.c), std::end(expected.c), -3.5);
    Value found = expected;
    const bool isRead = referenceValue<Value>(pieces, expected.c);
    require(String::parse(text, found) == isRead, "a math value that one side refuses");
    require(std::equal(std::begin(expected.c), std::end(expected.c), found.c, isSame),
            "different components");
}

template <class... Value>
void checkValues(const String& text) {
    const std::vector<std::string_view> pieces = splitAt(" ", text.view());
    (checkValue<Value>(text, pieces), ...);
}

// --- Buffers

constexpr std::size_t bufferCount = 24;

// What may stand in a group: numbers, and what separates them.
constexpr std::string_view blanks = "\t\n\v\f\r ,";
bool isOfGroup(char c) {
    return std::string_view("0123456789abcdefABCDEF+-.INUinu\t\n\v\f\r ,").find(c) !=
           std::string_view::npos;
}

template <class Number>
std::optional<Number> referenceNumber(std::string_view text) {
    if constexpr (std::is_floating_point_v<Number>) {
        return referenceReal(text, Number());
    } else {
        return referenceInteger<Number>(text, 0);
    }
}

template <class Number>
struct Expected {
    bool isRead = true;
    Number numbers[bufferCount] = {};
};

template <class Number>
Expected<Number> expectedBuffer(std::string_view data) {
    Expected<Number> expected;
    std::size_t count = 0;
    for (const std::string_view piece : splitAt(blanks, data)) {
        const std::optional<Number> number = referenceNumber<Number>(piece);
        if (count == bufferCount || !number) return {false, {}};
        expected.numbers[count++] = *number;
    }
    return expected;
}

template <class Number>
void checkBuffer(std::string_view data, const char* keyword) {
    const Expected<Number> expected = expectedBuffer<Number>(data);
    std::string text = std::string("a b:.c=") + keyword + '[' + std::to_string(bufferCount) + "]{";
    text.append(data).append("};");
    Scene scene;
    require(kvt::fuzz::readText(scene, text).ok == expected.isRead,
            "a buffer that one side refuses");
    if (!expected.isRead) return;
    const Number* const found = scene.findNode("b")->input("c")->asBufferOf<Number>();
    const auto isSameNumber = [](Number a, Number b) {
        return a == b ? std::signbit(double(a)) == std::signbit(double(b)) : a != a && b != b;
    };
    require(std::equal(found, found + bufferCount, expected.numbers, isSameNumber),
            "a buffer of different numbers");
}

void checkBuffers(std::string_view data) {
    if (!std::all_of(data.begin(), data.end(), isOfGroup)) return;
    switch (kvt::fuzz::fingerprint(data) % 4) {
        case 0: return checkBuffer<float>(data, "float");
        case 1: return checkBuffer<double>(data, "double");
        case 2: return checkBuffer<int>(data, "int32");
        default: return checkBuffer<unsigned long>(data, "uint64");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace ko::math;
    const std::string_view bytes = kvt::fuzz::textOf(data, size);
    const String text(bytes);
    checkBool(text);
    checkReal<float>(text);
    checkReal<double>(text);
    checkIntegers<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                  unsigned long>(text);
    checkValues<VecT<2, double>, VecT<3, double>, VecT<4, double>, PosT<2, double>, PosT<3, double>,
                QuatT<double>, RgbaT<double>, MatT<3, double>, MatT<4, double>>(text);
    checkBuffers(bytes);
    checkBits(data, size);
    return 0;
}
