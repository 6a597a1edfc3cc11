#include <ko/types.h>

#include "keywords.h"

namespace ko {

namespace {

// Everything that is to be known of one element type, in the order of the codes.
struct DataTypeRow {
    DataType type;
    const char* name;
    DataType component;
    unsigned long components;
};

using D = DataType;

// clang-format off
constexpr DataTypeRow dataTypes[dataTypeCount] = {
    {D::Null,   "Null",   D::Null,   1}, {D::Bool,   "Bool",   D::Bool,   1},
    {D::Char,   "Char",   D::Char,   1}, {D::Byte,   "Byte",   D::Byte,   1},
    {D::Int16,  "Int16",  D::Int16,  1}, {D::Int32,  "Int32",  D::Int32,  1},
    {D::Int64,  "Int64",  D::Int64,  1}, {D::UInt16, "UInt16", D::UInt16, 1},
    {D::UInt32, "UInt32", D::UInt32, 1}, {D::UInt64, "UInt64", D::UInt64, 1},
    {D::Float,  "Float",  D::Float,  1}, {D::Double, "Double", D::Double, 1},
    {D::Ptr,    "Ptr",    D::Ptr,    1},
    {D::Vec2f,  "Vec2f",  D::Float,  2}, {D::Vec2d,  "Vec2d",  D::Double, 2},
    {D::Vec2i,  "Vec2i",  D::Int32,  2}, {D::Vec2u,  "Vec2u",  D::UInt32, 2},
    {D::Vec3f,  "Vec3f",  D::Float,  3}, {D::Vec3d,  "Vec3d",  D::Double, 3},
    {D::Vec3i,  "Vec3i",  D::Int32,  3}, {D::Vec3u,  "Vec3u",  D::UInt32, 3},
    {D::Vec4f,  "Vec4f",  D::Float,  4}, {D::Vec4d,  "Vec4d",  D::Double, 4},
    {D::Vec4i,  "Vec4i",  D::Int32,  4}, {D::Vec4u,  "Vec4u",  D::UInt32, 4},
    {D::Pos2f,  "Pos2f",  D::Float,  2}, {D::Pos2d,  "Pos2d",  D::Double, 2},
    {D::Pos2i,  "Pos2i",  D::Int32,  2},
    {D::Pos3f,  "Pos3f",  D::Float,  3}, {D::Pos3d,  "Pos3d",  D::Double, 3},
    {D::Pos3i,  "Pos3i",  D::Int32,  3},
    {D::Quatf,  "Quatf",  D::Float,  4}, {D::Quatd,  "Quatd",  D::Double, 4},
    {D::Rgbf,   "Rgbf",   D::Float,  3}, {D::Rgbd,   "Rgbd",   D::Double, 3},
    {D::Rgb8,   "Rgb8",   D::Byte,   3},
    {D::Rgbaf,  "Rgbaf",  D::Float,  4}, {D::Rgbad,  "Rgbad",  D::Double, 4},
    {D::Rgba8,  "Rgba8",  D::Byte,   4},
    {D::Mat3f,  "Mat3f",  D::Float,  9}, {D::Mat3d,  "Mat3d",  D::Double, 9},
    {D::Mat3i,  "Mat3i",  D::Int32,  9},
    {D::Mat4f,  "Mat4f",  D::Float, 16}, {D::Mat4d,  "Mat4d",  D::Double, 16},
    {D::Mat4i,  "Mat4i",  D::Int32, 16},
    {D::Xformf, "Xformf", D::Float, 10}, {D::Xformd, "Xformd", D::Double, 10},
    {D::Xformi, "Xformi", D::Int32, 10},
    {D::Aabbf,  "Aabbf",  D::Float,  6}, {D::Aabbd,  "Aabbd",  D::Double, 6},
    {D::Aabbi,  "Aabbi",  D::Int32,  6},
    {D::Obbf,   "Obbf",   D::Float, 19}, {D::Obbd,   "Obbd",   D::Double, 19},
    {D::Obbi,   "Obbi",   D::Int32, 19},
    {D::Hsvf,   "Hsvf",   D::Float,  3}, {D::Hsvd,   "Hsvd",   D::Double, 3},
    {D::Hslf,   "Hslf",   D::Float,  3}, {D::Hsld,   "Hsld",   D::Double, 3},
    {D::Argb8,  "Argb8",  D::Byte,   4}, {D::ColorRef, "ColorRef", D::Byte, 4},
};
// clang-format on

constexpr bool rowsAreInOrder() {
    for (std::uint32_t i = 0; i < dataTypeCount; ++i)
        if (dataTypes[i].type != DataType(i)) return false;
    return true;
}
static_assert(rowsAreInOrder(), "a type's code is its place in the table");

// The row of `type`, or null for a code that is none.
const DataTypeRow* find(DataType type) {
    const auto code = static_cast<std::uint32_t>(type);
    return code < dataTypeCount ? &dataTypes[code] : nullptr;
}

unsigned long scalarSize(DataType type) {
    switch (type) {
        case D::Bool:
        case D::Char:
        case D::Byte: return 1;
        case D::Int16:
        case D::UInt16: return 2;
        case D::Int32:
        case D::UInt32:
        case D::Float: return 4;
        default: return 8;
    }
}

}  // namespace

const char* dataTypeName(DataType type) {
    const DataTypeRow* const row = find(type);
    return row ? row->name : "<unknown>";
}

DataType componentType(DataType type) {
    const DataTypeRow* const row = find(type);
    return row ? row->component : DataType::Null;
}

unsigned long componentCount(DataType type) {
    const DataTypeRow* const row = find(type);
    return row ? row->components : 0;
}

unsigned long componentSize(DataType type) {
    const DataTypeRow* const row = find(type);
    return row ? scalarSize(row->component) : 0;
}

unsigned long elementSize(DataType type) { return componentCount(type) * componentSize(type); }

namespace mirel_sdk {

namespace {

using A = AttrType;

// Which types a value may be stored into: the same type only, or any type of its kind.
enum class Kind { Other, Bool, Whole, Real, Vector, Matrix };

struct AttrTypeRow {
    AttrType type;
    const char* name;
    unsigned long components;
    Kind kind;
};

constexpr AttrTypeRow attrTypes[attrTypeCount] = {
    {A::Null, "Null", 0, Kind::Other},     {A::Bool, "Bool", 1, Kind::Bool},
    {A::Int, "Int", 1, Kind::Whole},       {A::UInt, "UInt", 1, Kind::Whole},
    {A::Real, "Real", 1, Kind::Real},      {A::Vec2, "Vec2", 2, Kind::Vector},
    {A::Vec3, "Vec3", 3, Kind::Vector},    {A::Vec4, "Vec4", 4, Kind::Vector},
    {A::Pos2, "Pos2", 2, Kind::Vector},    {A::Pos3, "Pos3", 3, Kind::Vector},
    {A::Quat, "Quat", 4, Kind::Vector},    {A::Rgba, "Rgba", 4, Kind::Vector},
    {A::Mat3, "Mat3", 9, Kind::Matrix},    {A::Mat4, "Mat4", 16, Kind::Matrix},
    {A::String, "String", 0, Kind::Other}, {A::Node, "Node", 0, Kind::Other},
    {A::Buffer, "Buffer", 0, Kind::Other}, {A::Array, "Array", 0, Kind::Other},
    {A::Object, "Object", 0, Kind::Other},
};

constexpr bool attrRowsAreInOrder() {
    for (std::uint32_t i = 0; i < attrTypeCount; ++i)
        if (attrTypes[i].type != AttrType(i)) return false;
    return true;
}
static_assert(attrRowsAreInOrder(), "a type's code is its place in the table");

const AttrTypeRow* find(AttrType type) {
    const auto code = static_cast<std::uint32_t>(type);
    return code < attrTypeCount ? &attrTypes[code] : nullptr;
}

Kind kindOf(AttrType type) {
    const AttrTypeRow* const row = find(type);
    return row ? row->kind : Kind::Other;
}

bool isScalar(Kind kind) { return kind == Kind::Bool || kind == Kind::Whole || kind == Kind::Real; }

}  // namespace

const char* attrTypeName(AttrType type) {
    const AttrTypeRow* const row = find(type);
    return row ? row->name : "<unknown>";
}

unsigned long componentCount(AttrType type) {
    const AttrTypeRow* const row = find(type);
    return row ? row->components : 0;
}

bool isVectorType(AttrType type) { return kindOf(type) == Kind::Vector; }

bool canConvert(AttrType from, AttrType to, bool* narrowing) {
    *narrowing = false;
    const Kind target = kindOf(to);
    switch (kindOf(from)) {
        case Kind::Bool: return isScalar(target);
        case Kind::Whole: *narrowing = target == Kind::Bool; return isScalar(target);
        case Kind::Real:
            *narrowing = target == Kind::Whole;
            return target == Kind::Whole || target == Kind::Real || target == Kind::Vector;
        case Kind::Vector:
        case Kind::Matrix:
            if (target != kindOf(from)) return false;
            *narrowing = componentCount(to) < componentCount(from);
            return true;
        case Kind::Other: break;
    }
    return from == to;
}

// --- Keywords -----------------------------------------------------------------------------------

const ds::HashMap<String, AttrType>& scalarTypes() {
    static const ds::HashMap<String, AttrType> types = [] {
        ds::HashMap<String, AttrType> named;
        for (const impl::MathType& type : impl::mathTypes)
            named.insert(type.spelling, type.type);
        return named;
    }();
    return types;
}

const ds::HashMap<String, DataType>& scalarBufferTypes() {
    static const ds::HashMap<String, DataType> types = {
        {"char", D::Char},   {"byte", D::Byte},     {"int16", D::Int16},   {"int32", D::Int32},
        {"int64", D::Int64}, {"uint16", D::UInt16}, {"uint32", D::UInt32}, {"uint64", D::UInt64},
        {"float", D::Float}, {"double", D::Double},
    };
    return types;
}

const ds::HashMap<String, DataType>& vectorBufferTypes() {
    static const ds::HashMap<String, DataType> types = {
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
    return types;
}

}  // namespace mirel_sdk
}  // namespace ko
