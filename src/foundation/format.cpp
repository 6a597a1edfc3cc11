// printf-style formatting. Each conversion is handed to the C library on its own; plain `%s` is
// copied here, so that text of any length passes and its bytes are never looked at by a locale.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include <ko/foundation.h>

namespace ko {

namespace {

// One conversion of a format: "%-8.3ld".
struct Conversion {
    std::string text;    // as written, with `*` replaced by the argument
    std::string length;  // "", "h", "hh", "l", "ll", "j", "z", "t" or "L"
    char kind = '\0';
};

// A copy of an argument list, which helpers take arguments from.
struct Arguments {
    explicit Arguments(va_list args) { va_copy(list, args); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments() { va_end(list); }

    va_list list;
};

// A negative precision counts as none.
void appendStar(Conversion& conversion, Arguments& args) {
    const int number = va_arg(args.list, int);
    const bool isPrecision = conversion.text.back() == '.';
    if (isPrecision && number < 0) {
        conversion.text.pop_back();
    } else {
        conversion.text += std::to_string(number);
    }
}

// Reads the conversion at `at`, just after its percent sign.
Conversion readConversion(const char*& at, Arguments& args) {
    Conversion conversion;
    conversion.text = "%";
    for (; *at && std::strchr("-+ #0123456789.*", *at); ++at) {
        if (*at == '*') {
            appendStar(conversion, args);
        } else {
            conversion.text += *at;
        }
    }
    for (; *at && std::strchr("hljztL", *at); ++at)
        conversion.length += *at;
    conversion.text += conversion.length;
    if (*at) conversion.kind = *at++;
    conversion.text += conversion.kind;
    return conversion;
}

template <class T>
void appendPrinted(std::string& out, const Conversion& conversion, T value) {
    const char* const format = conversion.text.c_str();
    const int length = std::snprintf(nullptr, 0, format, value);
    if (length < 0) throw std::runtime_error("cannot format a value");
    const unsigned long start = out.size();
    out.resize(start + static_cast<unsigned long>(length) + 1);
    std::snprintf(&out[start], static_cast<unsigned long>(length) + 1, format, value);
    out.pop_back();
}

// The C library prints reals with the locale's decimal point.
void usePoint(std::string& out, unsigned long start) {
    const char* const point = std::localeconv()->decimal_point;
    if (!point || std::strcmp(point, ".") == 0) return;
    const unsigned long at = out.find(point, start);
    if (at != std::string::npos) out.replace(at, std::strlen(point), ".");
}

void appendReal(std::string& out, const Conversion& conversion, Arguments& args) {
    const unsigned long start = out.size();
    if (conversion.length == "L") {
        appendPrinted(out, conversion, va_arg(args.list, long double));
    } else {
        appendPrinted(out, conversion, va_arg(args.list, double));
    }
    usePoint(out, start);
}

void appendInteger(std::string& out, const Conversion& conversion, Arguments& args) {
    if (conversion.length.empty() || conversion.length[0] == 'h') {
        appendPrinted(out, conversion, va_arg(args.list, int));
    } else if (conversion.length == "ll") {
        appendPrinted(out, conversion, va_arg(args.list, long long));
    } else {
        appendPrinted(out, conversion, va_arg(args.list, long));  // l, j, z and t
    }
}

void appendText(std::string& out, const Conversion& conversion, const char* text) {
    if (!text) text = "(null)";
    if (conversion.text == "%s") {
        out += text;
    } else {
        appendPrinted(out, conversion, text);
    }
}

void appendConversion(std::string& out, const Conversion& conversion, Arguments& args) {
    switch (conversion.kind) {
        case '%': out += '%'; break;
        case 's': appendText(out, conversion, va_arg(args.list, const char*)); break;
        case 'p': appendPrinted(out, conversion, va_arg(args.list, void*)); break;
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
        case 'c': appendInteger(out, conversion, args); break;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A': appendReal(out, conversion, args); break;
        default: throw std::invalid_argument("unknown conversion " + conversion.text);
    }
}

}  // namespace

String String::formatv(const char* fmt, va_list args) {
    Arguments arguments(args);
    std::string out;
    for (const char* at = fmt; *at;) {
        const unsigned long literal = std::strcspn(at, "%");
        out.append(at, literal);
        at += literal;
        if (*at == '%') appendConversion(out, readConversion(++at, arguments), arguments);
    }
    return String(out);
}

String String::format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    String text = formatv(fmt, args);
    va_end(args);
    return text;
}

}  // namespace ko
