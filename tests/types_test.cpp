// Element types and input types: codes, names, layouts, conversions, keywords.

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/types.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "foundation/typetable.h"

namespace {

using ko::componentSize;
using ko::componentType;
using ko::DataType;
using ko::dataTypeName;
using ko::dataTypeOf;
using ko::elementSize;
using ko::String;
using ko::ds::HashMap;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::attrTypeName;
using ko::mirel_sdk::canConvert;
using ko::mirel_sdk::isVectorType;
using ko::mirel_sdk::rowLength;
using ko::mirel_sdk::scalarBufferTypes;
using ko::mirel_sdk::scalarTypes;
using ko::mirel_sdk::Storage;
using ko::mirel_sdk::storageOf;
using ko::mirel_sdk::vectorBufferTypes;

constexpr std::uint32_t codesBeyond[] = {60, 61, 100, 255, 256, 65'536, 0x7FFFFFFF, 0xFFFFFFFF};

// --- element types

struct ElementRow {
    std::uint32_t code;
    DataType type;
    const char* name;
    DataType component;
    unsigned long components;
    unsigned long componentBytes;
    unsigned long elementBytes;
};

using D = DataType;

// clang-format off
constexpr ElementRow elementRows[] = {
    { 0, D::Null,     "Null",     D::Null,    1, 8,   8},
    { 1, D::Bool,     "Bool",     D::Bool,    1, 1,   1},
    { 2, D::Char,     "Char",     D::Char,    1, 1,   1},
    { 3, D::Byte,     "Byte",     D::Byte,    1, 1,   1},
    { 4, D::Int16,    "Int16",    D::Int16,   1, 2,   2},
    { 5, D::Int32,    "Int32",    D::Int32,   1, 4,   4},
    { 6, D::Int64,    "Int64",    D::Int64,   1, 8,   8},
    { 7, D::UInt16,   "UInt16",   D::UInt16,  1, 2,   2},
    { 8, D::UInt32,   "UInt32",   D::UInt32,  1, 4,   4},
    { 9, D::UInt64,   "UInt64",   D::UInt64,  1, 8,   8},
    {10, D::Float,    "Float",    D::Float,   1, 4,   4},
    {11, D::Double,   "Double",   D::Double,  1, 8,   8},
    {12, D::Ptr,      "Ptr",      D::Ptr,     1, 8,   8},
    {13, D::Vec2f,    "Vec2f",    D::Float,   2, 4,   8},
    {14, D::Vec2d,    "Vec2d",    D::Double,  2, 8,  16},
    {15, D::Vec2i,    "Vec2i",    D::Int32,   2, 4,   8},
    {16, D::Vec2u,    "Vec2u",    D::UInt32,  2, 4,   8},
    {17, D::Vec3f,    "Vec3f",    D::Float,   3, 4,  12},
    {18, D::Vec3d,    "Vec3d",    D::Double,  3, 8,  24},
    {19, D::Vec3i,    "Vec3i",    D::Int32,   3, 4,  12},
    {20, D::Vec3u,    "Vec3u",    D::UInt32,  3, 4,  12},
    {21, D::Vec4f,    "Vec4f",    D::Float,   4, 4,  16},
    {22, D::Vec4d,    "Vec4d",    D::Double,  4, 8,  32},
    {23, D::Vec4i,    "Vec4i",    D::Int32,   4, 4,  16},
    {24, D::Vec4u,    "Vec4u",    D::UInt32,  4, 4,  16},
    {25, D::Pos2f,    "Pos2f",    D::Float,   2, 4,   8},
    {26, D::Pos2d,    "Pos2d",    D::Double,  2, 8,  16},
    {27, D::Pos2i,    "Pos2i",    D::Int32,   2, 4,   8},
    {28, D::Pos3f,    "Pos3f",    D::Float,   3, 4,  12},
    {29, D::Pos3d,    "Pos3d",    D::Double,  3, 8,  24},
    {30, D::Pos3i,    "Pos3i",    D::Int32,   3, 4,  12},
    {31, D::Quatf,    "Quatf",    D::Float,   4, 4,  16},
    {32, D::Quatd,    "Quatd",    D::Double,  4, 8,  32},
    {33, D::Rgbf,     "Rgbf",     D::Float,   3, 4,  12},
    {34, D::Rgbd,     "Rgbd",     D::Double,  3, 8,  24},
    {35, D::Rgb8,     "Rgb8",     D::Byte,    3, 1,   3},
    {36, D::Rgbaf,    "Rgbaf",    D::Float,   4, 4,  16},
    {37, D::Rgbad,    "Rgbad",    D::Double,  4, 8,  32},
    {38, D::Rgba8,    "Rgba8",    D::Byte,    4, 1,   4},
    {39, D::Mat3f,    "Mat3f",    D::Float,   9, 4,  36},
    {40, D::Mat3d,    "Mat3d",    D::Double,  9, 8,  72},
    {41, D::Mat3i,    "Mat3i",    D::Int32,   9, 4,  36},
    {42, D::Mat4f,    "Mat4f",    D::Float,  16, 4,  64},
    {43, D::Mat4d,    "Mat4d",    D::Double, 16, 8, 128},
    {44, D::Mat4i,    "Mat4i",    D::Int32,  16, 4,  64},
    {45, D::Xformf,   "Xformf",   D::Float,  10, 4,  40},
    {46, D::Xformd,   "Xformd",   D::Double, 10, 8,  80},
    {47, D::Xformi,   "Xformi",   D::Int32,  10, 4,  40},
    {48, D::Aabbf,    "Aabbf",    D::Float,   6, 4,  24},
    {49, D::Aabbd,    "Aabbd",    D::Double,  6, 8,  48},
    {50, D::Aabbi,    "Aabbi",    D::Int32,   6, 4,  24},
    {51, D::Obbf,     "Obbf",     D::Float,  19, 4,  76},
    {52, D::Obbd,     "Obbd",     D::Double, 19, 8, 152},
    {53, D::Obbi,     "Obbi",     D::Int32,  19, 4,  76},
    {54, D::Hsvf,     "Hsvf",     D::Float,   3, 4,  12},
    {55, D::Hsvd,     "Hsvd",     D::Double,  3, 8,  24},
    {56, D::Hslf,     "Hslf",     D::Float,   3, 4,  12},
    {57, D::Hsld,     "Hsld",     D::Double,  3, 8,  24},
    {58, D::Argb8,    "Argb8",    D::Byte,    4, 1,   4},
    {59, D::ColorRef, "ColorRef", D::Byte,    4, 1,   4},
};
// clang-format on

static_assert(std::size(elementRows) == 60);

TEST(DataTypeTest, CodesAreAsListed) {
    for (const ElementRow& row : elementRows)
        EXPECT_EQ(static_cast<std::uint32_t>(row.type), row.code) << row.name;
    EXPECT_EQ(ko::dataTypeCount, 60U);
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<DataType>, std::uint32_t>));
}

TEST(DataTypeTest, NamesAreAsListed) {
    for (const ElementRow& row : elementRows)
        EXPECT_STREQ(dataTypeName(DataType(row.code)), row.name) << row.code;
}

TEST(DataTypeTest, OtherCodesHaveNoName) {
    for (const std::uint32_t code : codesBeyond)
        EXPECT_STREQ(dataTypeName(DataType(code)), "<unknown>") << code;
}

TEST(DataTypeTest, NameIsTheSameTextEachTime) {
    EXPECT_EQ(dataTypeName(DataType::Vec3f), dataTypeName(DataType::Vec3f));
    EXPECT_EQ(dataTypeName(DataType(60)), dataTypeName(DataType(61)));
}

TEST(DataTypeTest, ElementsAreLaidOutAsListed) {
    for (const ElementRow& row : elementRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(componentType(row.type), row.component);
        EXPECT_EQ(ko::componentCount(row.type), row.components);
        EXPECT_EQ(componentSize(row.type), row.componentBytes);
        EXPECT_EQ(elementSize(row.type), row.elementBytes);
    }
}

TEST(DataTypeTest, NumbersHaveTheCodeOfTheirElementType) {
    for (const ElementRow& row : elementRows)
        EXPECT_EQ(std::uint32_t(ko::numberType(row.type)), std::uint32_t(row.component))
            << row.name;
    for (const std::uint32_t code : codesBeyond)
        EXPECT_EQ(ko::numberType(DataType(code)), ko::NumberType::None) << code;
}

TEST(DataTypeTest, OtherCodesHaveNoLayout) {
    for (const std::uint32_t code : codesBeyond) {
        SCOPED_TRACE(code);
        EXPECT_EQ(componentType(DataType(code)), DataType::Null);
        EXPECT_EQ(ko::componentCount(DataType(code)), 0U);
        EXPECT_EQ(componentSize(DataType(code)), 0U);
        EXPECT_EQ(elementSize(DataType(code)), 0U);
    }
}

TEST(DataTypeTest, ScalarsHaveTheirTypes) {
    EXPECT_EQ(dataTypeOf<bool>(), DataType::Bool);
    EXPECT_EQ(dataTypeOf<signed char>(), DataType::Char);
    EXPECT_EQ(dataTypeOf<unsigned char>(), DataType::Byte);
    EXPECT_EQ(dataTypeOf<short>(), DataType::Int16);
    EXPECT_EQ(dataTypeOf<int>(), DataType::Int32);
    EXPECT_EQ(dataTypeOf<long>(), DataType::Int64);
    EXPECT_EQ(dataTypeOf<unsigned short>(), DataType::UInt16);
    EXPECT_EQ(dataTypeOf<unsigned int>(), DataType::UInt32);
    EXPECT_EQ(dataTypeOf<unsigned long>(), DataType::UInt64);
    EXPECT_EQ(dataTypeOf<float>(), DataType::Float);
    EXPECT_EQ(dataTypeOf<double>(), DataType::Double);
}

// --- input types

struct InputRow {
    AttrType type;
    const char* name;
    unsigned long components;
    bool isVector;
    // Into which types, in the order of the codes: y yes, n yes but narrowing, . no.
    const char* conversions;
};

using A = AttrType;

// clang-format off
constexpr InputRow inputRows[] = {
    {A::Null,   "Null",    0, false, "y.................."},
    {A::Bool,   "Bool",    1, false, ".yyyy.............."},
    {A::Int,    "Int",     1, false, ".nyyy.............."},
    {A::UInt,   "UInt",    1, false, ".nyyy.............."},
    {A::Real,   "Real",    1, false, "..nnyyyyyyyy......."},
    {A::Vec2,   "Vec2",    2, true,  ".....yyyyyyy......."},
    {A::Vec3,   "Vec3",    3, true,  ".....nyynyyy......."},
    {A::Vec4,   "Vec4",    4, true,  ".....nnynnyy......."},
    {A::Pos2,   "Pos2",    2, true,  ".....yyyyyyy......."},
    {A::Pos3,   "Pos3",    3, true,  ".....nyynyyy......."},
    {A::Quat,   "Quat",    4, true,  ".....nnynnyy......."},
    {A::Rgba,   "Rgba",    4, true,  ".....nnynnyy......."},
    {A::Mat3,   "Mat3",    9, false, "............yy....."},
    {A::Mat4,   "Mat4",   16, false, "............ny....."},
    {A::String, "String",  0, false, "..............y...."},
    {A::Node,   "Node",    0, false, "...............y..."},
    {A::Buffer, "Buffer",  0, false, "................y.."},
    {A::Array,  "Array",   0, false, ".................y."},
    {A::Object, "Object",  0, false, "..................y"},
};
// clang-format on

static_assert(std::size(inputRows) == 19);

constexpr std::uint32_t attrCodesBeyond[] = {19, 20, 100, 255, 256, 65'536, 0x7FFFFFFF, 0xFFFFFFFF};

TEST(AttrTypeTest, CodesAreAsListed) {
    for (std::uint32_t code = 0; code < 19; ++code)
        EXPECT_EQ(static_cast<std::uint32_t>(inputRows[code].type), code) << inputRows[code].name;
    EXPECT_EQ(ko::mirel_sdk::attrTypeCount, 19U);
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<AttrType>, std::uint32_t>));
}

TEST(AttrTypeTest, NamesAreAsListed) {
    for (const InputRow& row : inputRows)
        EXPECT_STREQ(attrTypeName(row.type), row.name);
}

TEST(AttrTypeTest, OtherCodesHaveNoName) {
    for (const std::uint32_t code : attrCodesBeyond)
        EXPECT_STREQ(attrTypeName(AttrType(code)), "<unknown>") << code;
}

TEST(AttrTypeTest, ComponentsAreAsListed) {
    for (const InputRow& row : inputRows)
        EXPECT_EQ(ko::mirel_sdk::componentCount(row.type), row.components) << row.name;
    for (const std::uint32_t code : attrCodesBeyond)
        EXPECT_EQ(ko::mirel_sdk::componentCount(AttrType(code)), 0U) << code;
}

TEST(AttrTypeTest, ValuesConsistOfWhatTheirTypeSays) {
    using S = Storage;
    constexpr S storages[] = {S::None, S::Bool, S::Int,    S::UInt,     S::Real,
                              S::Text, S::None, S::Buffer, S::Elements, S::Inputs};
    constexpr AttrType types[] = {A::Null,   A::Bool, A::Int,    A::UInt,  A::Real,
                                  A::String, A::Node, A::Buffer, A::Array, A::Object};
    for (unsigned i = 0; i < std::size(types); ++i)
        EXPECT_EQ(storageOf(types[i]), storages[i]) << attrTypeName(types[i]);
    for (std::uint32_t code = 0; code < ko::mirel_sdk::attrTypeCount; ++code) {
        const bool isGroup = ko::mirel_sdk::componentCount(AttrType(code)) > 1;
        EXPECT_EQ(storageOf(AttrType(code)) == S::Components, isGroup) << code;
    }
    for (const std::uint32_t code : codesBeyond)
        EXPECT_EQ(storageOf(AttrType(code)), S::None) << code;
}

TEST(AttrTypeTest, OnlyMatricesHaveMoreThanOneRow) {
    for (std::uint32_t code = 0; code < ko::mirel_sdk::attrTypeCount; ++code) {
        const auto type = AttrType(code);
        const unsigned long rows = type == A::Mat3 ? 3 : type == A::Mat4 ? 4 : 1;
        EXPECT_EQ(rows * rowLength(type), ko::mirel_sdk::componentCount(type)) << code;
    }
}

// The compiler asks the same; here it is asked at run time.
TEST(AttrTypeTest, RowsAreWholeAndStandInTheTable) {
    EXPECT_TRUE(ko::dataTypesAreInOrder());
    EXPECT_TRUE(ko::sizesAgree());
    EXPECT_TRUE(ko::mirel_sdk::attrTypesAreComplete());
    const ko::mirel_sdk::AttrTypeTable table;
    for (std::uint32_t code = 0; code < ko::mirel_sdk::attrTypeCount; ++code) {
        EXPECT_STREQ(table.rows[code].name, attrTypeName(AttrType(code)));
        EXPECT_TRUE(isComplete(table.rows[code])) << code;
    }
    for (const DataType type : {DataType::Float, DataType::Vec3f, DataType::Obbi})
        EXPECT_STREQ(ko::rowOf(type).name, dataTypeName(type));
}

TEST(AttrTypeTest, ARowThatLacksSomethingDoesNotPass) {
    using ko::mirel_sdk::AttrTypeRow;
    const auto isRefused = [](const auto& change) {
        AttrTypeRow row = ko::mirel_sdk::rowOf(A::Vec3);
        change(row);
        return !isComplete(row);
    };
    EXPECT_FALSE(isRefused([](AttrTypeRow&) {}));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.family = ko::mirel_sdk::Family::Alone; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.storage = Storage::None; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.components = 0; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.rowLength = 0; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.rowLength = 2; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.defaults = nullptr; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row.keyword = ko::Keyword::No; }));
    EXPECT_TRUE(isRefused([](AttrTypeRow& row) { row = {}; }));
}

TEST(AttrTypeTest, VectorsPointsRotationsAndColoursAreVectors) {
    for (const InputRow& row : inputRows)
        EXPECT_EQ(isVectorType(row.type), row.isVector) << row.name;
    for (const std::uint32_t code : attrCodesBeyond)
        EXPECT_FALSE(isVectorType(AttrType(code))) << code;
}

// --- conversions

// 'y', 'n' or '.', as in the table; the flag must be set whatever it was before.
char conversion(AttrType from, AttrType to) {
    bool narrowing = true;
    const bool allowed = canConvert(from, to, &narrowing);
    bool again = false;
    EXPECT_EQ(canConvert(from, to, &again), allowed);
    EXPECT_EQ(again, narrowing);
    EXPECT_TRUE(allowed || !narrowing) << "a refusal is not narrowing";
    if (!allowed) return '.';
    return narrowing ? 'n' : 'y';
}

TEST(CanConvertTest, EveryPairIsAsListed) {
    for (const InputRow& from : inputRows) {
        std::string conversions;
        for (const InputRow& to : inputRows)
            conversions += conversion(from.type, to.type);
        EXPECT_EQ(conversions, from.conversions) << from.name;
    }
}

TEST(CanConvertTest, RefusalClearsTheNarrowingFlag) {
    for (const InputRow& from : inputRows) {
        for (const InputRow& to : inputRows) {
            bool narrowing = true;
            if (!canConvert(from.type, to.type, &narrowing)) {
                EXPECT_FALSE(narrowing) << from.name << " " << to.name;
            }
        }
    }
}

TEST(CanConvertTest, UnknownTypesFitThemselvesOnly) {
    for (const std::uint32_t code : attrCodesBeyond) {
        SCOPED_TRACE(code);
        const auto unknown = AttrType(code);
        EXPECT_EQ(conversion(unknown, unknown), 'y');
        EXPECT_EQ(conversion(unknown, AttrType(code ^ 0x1000U)), '.');
        for (const InputRow& row : inputRows) {
            EXPECT_EQ(conversion(unknown, row.type), '.') << row.name;
            EXPECT_EQ(conversion(row.type, unknown), '.') << row.name;
        }
    }
}

TEST(CanConvertTest, UnknownTypesClearTheNarrowingFlag) {
    bool narrowing = true;
    EXPECT_TRUE(canConvert(AttrType(19), AttrType(19), &narrowing));
    EXPECT_FALSE(narrowing);
    narrowing = true;
    EXPECT_FALSE(canConvert(AttrType(19), AttrType::Bool, &narrowing));
    EXPECT_FALSE(narrowing);
    narrowing = true;
    EXPECT_FALSE(canConvert(AttrType::Vec4, AttrType(19), &narrowing));
    EXPECT_FALSE(narrowing);
}

// --- keywords

template <class T>
using Keywords = std::map<std::string, T>;

const Keywords<AttrType> scalarKeywords = {
    {"vec2", A::Vec2}, {"vec3", A::Vec3}, {"vec4", A::Vec4}, {"pos2", A::Pos2}, {"pos3", A::Pos3},
    {"quat", A::Quat}, {"mat3", A::Mat3}, {"mat4", A::Mat4}, {"rgba", A::Rgba},
};

const Keywords<DataType> scalarBufferKeywords = {
    {"char", D::Char},   {"byte", D::Byte},     {"int16", D::Int16},   {"int32", D::Int32},
    {"int64", D::Int64}, {"uint16", D::UInt16}, {"uint32", D::UInt32}, {"uint64", D::UInt64},
    {"float", D::Float}, {"double", D::Double},
};

const Keywords<DataType> vectorBufferKeywords = {
    {"vec2f", D::Vec2f}, {"vec3f", D::Vec3f},       {"vec4f", D::Vec4f}, {"pos2f", D::Pos2f},
    {"pos3f", D::Pos3f}, {"quatf", D::Quatf},       {"mat3f", D::Mat3f}, {"mat4f", D::Mat4f},
    {"rgbf", D::Rgbf},   {"rgbaf", D::Rgbaf},       {"hsvf", D::Hsvf},   {"hslf", D::Hslf},
    {"vec2d", D::Vec2d}, {"vec3d", D::Vec3d},       {"vec4d", D::Vec4d}, {"pos2d", D::Pos2d},
    {"pos3d", D::Pos3d}, {"quatd", D::Quatd},       {"mat3d", D::Mat3d}, {"mat4d", D::Mat4d},
    {"rgbd", D::Rgbd},   {"rgbad", D::Rgbad},       {"hsvd", D::Hsvd},   {"hsld", D::Hsld},
    {"vec2i", D::Vec2i}, {"vec3i", D::Vec3i},       {"vec4i", D::Vec4i}, {"pos2i", D::Pos2i},
    {"pos3i", D::Pos3i}, {"mat3i", D::Mat3i},       {"mat4i", D::Mat4i}, {"vec2u", D::Vec2u},
    {"vec3u", D::Vec3u}, {"vec4u", D::Vec4u},       {"rgb8", D::Rgb8},   {"rgba8", D::Rgba8},
    {"argb8", D::Argb8}, {"colorref", D::ColorRef},
};

template <class T>
Keywords<T> contentsOf(const HashMap<String, T>& map) {
    Keywords<T> contents;
    for (const String& key : map.keys())
        contents[std::string(key.view())] = map.find(key);
    return contents;
}

TEST(KeywordTest, ScalarTypesAreAsListed) {
    EXPECT_EQ(contentsOf(scalarTypes()), scalarKeywords);
    EXPECT_EQ(scalarTypes().size(), 9U);
}

TEST(KeywordTest, ScalarBufferTypesAreAsListed) {
    EXPECT_EQ(contentsOf(scalarBufferTypes()), scalarBufferKeywords);
    EXPECT_EQ(scalarBufferTypes().size(), 10U);
}

TEST(KeywordTest, VectorBufferTypesAreAsListed) {
    EXPECT_EQ(contentsOf(vectorBufferTypes()), vectorBufferKeywords);
    EXPECT_EQ(vectorBufferTypes().size(), 38U);
}

// Every keyword of every map.
std::set<std::string> allKeywords() {
    std::set<std::string> all;
    for (const auto& entry : scalarKeywords)
        all.insert(entry.first);
    for (const auto& entry : scalarBufferKeywords)
        all.insert(entry.first);
    for (const auto& entry : vectorBufferKeywords)
        all.insert(entry.first);
    return all;
}

void expectNoKeyword(const String& text) {
    SCOPED_TRACE(text.view());
    EXPECT_EQ(scalarTypes().findNode(text), nullptr);
    EXPECT_EQ(scalarBufferTypes().findNode(text), nullptr);
    EXPECT_EQ(vectorBufferTypes().findNode(text), nullptr);
}

TEST(KeywordTest, NoKeywordIsInTwoMaps) { EXPECT_EQ(allKeywords().size(), 57U); }

TEST(KeywordTest, KeywordsOfOneMapAreNotInTheOthers) {
    for (const auto& entry : scalarKeywords) {
        EXPECT_EQ(scalarBufferTypes().findNode(entry.first.c_str()), nullptr) << entry.first;
        EXPECT_EQ(vectorBufferTypes().findNode(entry.first.c_str()), nullptr) << entry.first;
    }
    for (const auto& entry : scalarBufferKeywords) {
        EXPECT_EQ(scalarTypes().findNode(entry.first.c_str()), nullptr) << entry.first;
        EXPECT_EQ(vectorBufferTypes().findNode(entry.first.c_str()), nullptr) << entry.first;
    }
    for (const auto& entry : vectorBufferKeywords) {
        EXPECT_EQ(scalarTypes().findNode(entry.first.c_str()), nullptr) << entry.first;
        EXPECT_EQ(scalarBufferTypes().findNode(entry.first.c_str()), nullptr) << entry.first;
    }
}

TEST(KeywordTest, KeywordsAreLowerCase) {
    for (std::string keyword : allKeywords()) {
        keyword[0] = static_cast<char>(keyword[0] - 'a' + 'A');
        expectNoKeyword(String(keyword));
    }
    for (const char* text : {"VEC3", "Vec3f", "vec3F", "FLOAT", "ColorRef", "colorRef"})
        expectNoKeyword(text);
}

TEST(KeywordTest, OtherTypesHaveNoKeyword) {
    for (const char* text :
         {"null",  "bool",   "ptr",   "int",    "uint",   "real",   "string", "node",  "buffer",
          "array", "object", "xform", "xformf", "xformd", "xformi", "aabb",   "aabbf", "aabbd",
          "aabbi", "obb",    "obbf",  "obbd",   "obbi",   "quati",  "rgb",    "rgbi",  "hsv",
          "hsl",   "int8",   "uint8", "half",   "pos4",   "vec5",   "mat2",   "pos2u", "pos3u",
          "mat3u", "mat4u",  "hsv8",  "",       " ",      "vec",    "vec2 ",  " vec2", "vec2ff"})
        expectNoKeyword(text);
}

TEST(KeywordTest, NamesOfOtherElementTypesAreNoKeywords) {
    const std::set<std::string> keywords = allKeywords();
    int without = 0;
    for (const ElementRow& row : elementRows) {
        const String keyword = String(row.name).toLower(true);
        if (keywords.count(std::string(keyword.view())) != 0) continue;
        expectNoKeyword(keyword);
        ++without;
    }
    // Null, Bool, Ptr and three types each of three families.
    EXPECT_EQ(without, 12);
}

TEST(KeywordTest, AbsentKeywordYieldsTheMissingType) {
    EXPECT_EQ(scalarTypes().find("Vec2"), AttrType::Null);
    EXPECT_EQ(vectorBufferTypes().find("vec2"), DataType::Null);
    EXPECT_EQ(&vectorBufferTypes().find("vec2"), &(HashMap<String, DataType>::missing()));
    EXPECT_EQ(&vectorBufferTypes().find("x"), &scalarBufferTypes().find("y"));
}

TEST(KeywordTest, MapsAreTheSameForEveryThread) {
    std::vector<const void*> seen(8);
    std::vector<std::thread> threads;
    for (const void*& place : seen)
        threads.emplace_back([&place] { place = &vectorBufferTypes(); });
    for (std::thread& thread : threads)
        thread.join();
    for (const void* place : seen)
        EXPECT_EQ(place, &vectorBufferTypes());
}

}  // namespace
