// The types of the format: for each one row with all that there is to know of it. A type of values
// without a row, and a row that contradicts itself, do not compile.
#pragma once

#include <cstdint>
#include <iterator>

#include <ko/math.h>
#include <ko/types.h>

namespace ko {

// --- Element types ------------------------------------------------------------------------------

// What an element type is that is one number; None for the others. The codes are the same.
constexpr NumberType singleNumber(DataType type) {
    return type <= DataType::Ptr ? static_cast<NumberType>(type) : NumberType::None;
}
static_assert(singleNumber(DataType::Null) == NumberType::None);
static_assert(singleNumber(DataType::Bool) == NumberType::Bool);
static_assert(singleNumber(DataType::UInt64) == NumberType::UInt64);
static_assert(singleNumber(DataType::Double) == NumberType::Double);
static_assert(singleNumber(DataType::Ptr) == NumberType::Ptr);

// Whether documents name the type, in lower case, before the data of a buffer.
enum class Keyword : bool { No, Yes };

struct DataTypeRow {
    DataType type = DataType::Null;
    const char* name = "<unknown>";
    DataType component = DataType::Null;
    unsigned long components = 0;
    unsigned long componentSize = 0;  // bytes
    Keyword keyword = Keyword::No;
};

inline constexpr DataTypeRow dataTypes[] = {
    {DataType::Null, "Null", DataType::Null, 1, 8, Keyword::No},
    {DataType::Bool, "Bool", DataType::Bool, 1, 1, Keyword::No},
    {DataType::Char, "Char", DataType::Char, 1, 1, Keyword::Yes},
    {DataType::Byte, "Byte", DataType::Byte, 1, 1, Keyword::Yes},
    {DataType::Int16, "Int16", DataType::Int16, 1, 2, Keyword::Yes},
    {DataType::Int32, "Int32", DataType::Int32, 1, 4, Keyword::Yes},
    {DataType::Int64, "Int64", DataType::Int64, 1, 8, Keyword::Yes},
    {DataType::UInt16, "UInt16", DataType::UInt16, 1, 2, Keyword::Yes},
    {DataType::UInt32, "UInt32", DataType::UInt32, 1, 4, Keyword::Yes},
    {DataType::UInt64, "UInt64", DataType::UInt64, 1, 8, Keyword::Yes},
    {DataType::Float, "Float", DataType::Float, 1, 4, Keyword::Yes},
    {DataType::Double, "Double", DataType::Double, 1, 8, Keyword::Yes},
    {DataType::Ptr, "Ptr", DataType::Ptr, 1, 8, Keyword::No},
    {DataType::Vec2f, "Vec2f", DataType::Float, 2, 4, Keyword::Yes},
    {DataType::Vec2d, "Vec2d", DataType::Double, 2, 8, Keyword::Yes},
    {DataType::Vec2i, "Vec2i", DataType::Int32, 2, 4, Keyword::Yes},
    {DataType::Vec2u, "Vec2u", DataType::UInt32, 2, 4, Keyword::Yes},
    {DataType::Vec3f, "Vec3f", DataType::Float, 3, 4, Keyword::Yes},
    {DataType::Vec3d, "Vec3d", DataType::Double, 3, 8, Keyword::Yes},
    {DataType::Vec3i, "Vec3i", DataType::Int32, 3, 4, Keyword::Yes},
    {DataType::Vec3u, "Vec3u", DataType::UInt32, 3, 4, Keyword::Yes},
    {DataType::Vec4f, "Vec4f", DataType::Float, 4, 4, Keyword::Yes},
    {DataType::Vec4d, "Vec4d", DataType::Double, 4, 8, Keyword::Yes},
    {DataType::Vec4i, "Vec4i", DataType::Int32, 4, 4, Keyword::Yes},
    {DataType::Vec4u, "Vec4u", DataType::UInt32, 4, 4, Keyword::Yes},
    {DataType::Pos2f, "Pos2f", DataType::Float, 2, 4, Keyword::Yes},
    {DataType::Pos2d, "Pos2d", DataType::Double, 2, 8, Keyword::Yes},
    {DataType::Pos2i, "Pos2i", DataType::Int32, 2, 4, Keyword::Yes},
    {DataType::Pos3f, "Pos3f", DataType::Float, 3, 4, Keyword::Yes},
    {DataType::Pos3d, "Pos3d", DataType::Double, 3, 8, Keyword::Yes},
    {DataType::Pos3i, "Pos3i", DataType::Int32, 3, 4, Keyword::Yes},
    {DataType::Quatf, "Quatf", DataType::Float, 4, 4, Keyword::Yes},
    {DataType::Quatd, "Quatd", DataType::Double, 4, 8, Keyword::Yes},
    {DataType::Rgbf, "Rgbf", DataType::Float, 3, 4, Keyword::Yes},
    {DataType::Rgbd, "Rgbd", DataType::Double, 3, 8, Keyword::Yes},
    {DataType::Rgb8, "Rgb8", DataType::Byte, 3, 1, Keyword::Yes},
    {DataType::Rgbaf, "Rgbaf", DataType::Float, 4, 4, Keyword::Yes},
    {DataType::Rgbad, "Rgbad", DataType::Double, 4, 8, Keyword::Yes},
    {DataType::Rgba8, "Rgba8", DataType::Byte, 4, 1, Keyword::Yes},
    {DataType::Mat3f, "Mat3f", DataType::Float, 9, 4, Keyword::Yes},
    {DataType::Mat3d, "Mat3d", DataType::Double, 9, 8, Keyword::Yes},
    {DataType::Mat3i, "Mat3i", DataType::Int32, 9, 4, Keyword::Yes},
    {DataType::Mat4f, "Mat4f", DataType::Float, 16, 4, Keyword::Yes},
    {DataType::Mat4d, "Mat4d", DataType::Double, 16, 8, Keyword::Yes},
    {DataType::Mat4i, "Mat4i", DataType::Int32, 16, 4, Keyword::Yes},
    {DataType::Xformf, "Xformf", DataType::Float, 10, 4, Keyword::No},
    {DataType::Xformd, "Xformd", DataType::Double, 10, 8, Keyword::No},
    {DataType::Xformi, "Xformi", DataType::Int32, 10, 4, Keyword::No},
    {DataType::Aabbf, "Aabbf", DataType::Float, 6, 4, Keyword::No},
    {DataType::Aabbd, "Aabbd", DataType::Double, 6, 8, Keyword::No},
    {DataType::Aabbi, "Aabbi", DataType::Int32, 6, 4, Keyword::No},
    {DataType::Obbf, "Obbf", DataType::Float, 19, 4, Keyword::No},
    {DataType::Obbd, "Obbd", DataType::Double, 19, 8, Keyword::No},
    {DataType::Obbi, "Obbi", DataType::Int32, 19, 4, Keyword::No},
    {DataType::Hsvf, "Hsvf", DataType::Float, 3, 4, Keyword::Yes},
    {DataType::Hsvd, "Hsvd", DataType::Double, 3, 8, Keyword::Yes},
    {DataType::Hslf, "Hslf", DataType::Float, 3, 4, Keyword::Yes},
    {DataType::Hsld, "Hsld", DataType::Double, 3, 8, Keyword::Yes},
    {DataType::Argb8, "Argb8", DataType::Byte, 4, 1, Keyword::Yes},
    {DataType::ColorRef, "ColorRef", DataType::Byte, 4, 1, Keyword::Yes},
};

constexpr bool dataTypesAreInOrder() {
    for (std::uint32_t i = 0; i < std::size(dataTypes); ++i)
        if (dataTypes[i].type != DataType(i)) return false;
    return true;
}
static_assert(std::size(dataTypes) == dataTypeCount, "each type has a row");
static_assert(dataTypesAreInOrder(), "a type's code is its place in the table");

constexpr bool isWhole(const DataTypeRow& row) {
    const DataTypeRow& component = dataTypes[static_cast<std::uint32_t>(row.component)];
    return row.components > 0 && component.components == 1 && row.componentSize > 0 &&
           row.componentSize == component.componentSize;
}

constexpr bool sizesAgree() {
    for (std::uint32_t i = 0; i < dataTypeCount; ++i)
        if (!isWhole(dataTypes[i])) return false;
    return true;
}
static_assert(sizesAgree(), "an element is made of numbers that have a row of their own");

// The row of a type; of nothing for a code that is none.
constexpr DataTypeRow rowOf(DataType type) {
    const auto code = static_cast<std::uint32_t>(type);
    return code < dataTypeCount ? dataTypes[code] : DataTypeRow();
}

namespace mirel_sdk {

// --- Types of inputs ----------------------------------------------------------------------------

// What a value of another type must be to be stored: of the same type, or of the same family, or
// what `canConvert` says of two families.
enum class Family : std::uint8_t { Alone, Bool, Whole, Real, Vector, Matrix };

struct AttrTypeRow {
    const char* name = "<unknown>";
    Family family = Family::Alone;
    Storage storage = Storage::None;
    unsigned long components = 0;
    unsigned long rowLength = 0;       // components in each row of a matrix, or in all
    const double* defaults = nullptr;  // what a new value begins with
    Keyword keyword = Keyword::No;     // before a value in parentheses
};

// A value has room for so many components, and a vector, whatever its type uses of them, this many.
inline constexpr unsigned long mostComponents = 16;
inline constexpr unsigned long vectorComponents = 4;

inline constexpr double zeros[mostComponents] = {};

constexpr AttrTypeRow rowOf(AttrType type) {
    using A = AttrType;
    using F = Family;
    using S = Storage;
    constexpr Keyword yes = Keyword::Yes;
    constexpr Keyword no = Keyword::No;
    constexpr const double* black = math::RgbaT<double>::black.c;
    constexpr const double* unit = math::QuatT<double>::identity.c;
    constexpr const double* identity3 = math::MatT<3, double>::identity.c;
    constexpr const double* identity4 = math::MatT<4, double>::identity.c;
    switch (type) {
        case A::Null: return {"Null", F::Alone, S::None, 0, 0, zeros, no};
        case A::Bool: return {"Bool", F::Bool, S::Bool, 1, 1, zeros, no};
        case A::Int: return {"Int", F::Whole, S::Int, 1, 1, zeros, no};
        case A::UInt: return {"UInt", F::Whole, S::UInt, 1, 1, zeros, no};
        case A::Real: return {"Real", F::Real, S::Real, 1, 1, zeros, no};
        case A::Vec2: return {"Vec2", F::Vector, S::Components, 2, 2, zeros, yes};
        case A::Vec3: return {"Vec3", F::Vector, S::Components, 3, 3, zeros, yes};
        case A::Vec4: return {"Vec4", F::Vector, S::Components, 4, 4, zeros, yes};
        case A::Pos2: return {"Pos2", F::Vector, S::Components, 2, 2, zeros, yes};
        case A::Pos3: return {"Pos3", F::Vector, S::Components, 3, 3, zeros, yes};
        case A::Quat: return {"Quat", F::Vector, S::Components, 4, 4, unit, yes};
        case A::Rgba: return {"Rgba", F::Vector, S::Components, 4, 4, black, yes};
        case A::Mat3: return {"Mat3", F::Matrix, S::Components, 9, 3, identity3, yes};
        case A::Mat4: return {"Mat4", F::Matrix, S::Components, 16, 4, identity4, yes};
        case A::String: return {"String", F::Alone, S::Text, 0, 0, zeros, no};
        case A::Node: return {"Node", F::Alone, S::None, 0, 0, zeros, no};
        case A::Buffer: return {"Buffer", F::Alone, S::Buffer, 0, 0, zeros, no};
        case A::Array: return {"Array", F::Alone, S::Elements, 0, 0, zeros, no};
        case A::Object: return {"Object", F::Alone, S::Inputs, 0, 0, zeros, no};
    }
    return {};
}

constexpr bool isNumeric(Storage storage) {
    return storage == Storage::Bool || storage == Storage::Int || storage == Storage::UInt ||
           storage == Storage::Real || storage == Storage::Components;
}

// The counts that the reader of values in parentheses is made for.
constexpr bool isReadable(unsigned long components) {
    return (components >= 2 && components <= vectorComponents) || components == 9 ||
           components == mostComponents;
}

// What is made of numbers has a family and rows, and what is not has none. Components alone stand
// in parentheses; those of a matrix fill as many rows as columns.
constexpr bool isComplete(const AttrTypeRow& row) {
    const bool hasNumbers = isNumeric(row.storage);
    const bool isGroup = row.storage == Storage::Components;
    if (!row.defaults || hasNumbers != (row.family != Family::Alone)) return false;
    if (hasNumbers != (row.components > 0) || hasNumbers != (row.rowLength > 0)) return false;
    const unsigned long rows = row.family == Family::Matrix ? row.rowLength : 1;
    if (row.components != rows * row.rowLength) return false;
    if (isGroup && !isReadable(row.components)) return false;
    return isGroup == (row.components > 1) && isGroup == (row.keyword == Keyword::Yes);
}

constexpr bool attrTypesAreComplete() {
    for (std::uint32_t i = 0; i < attrTypeCount; ++i)
        if (rowOf(AttrType(i)).name[0] == '<' || !isComplete(rowOf(AttrType(i)))) return false;
    return rowOf(AttrType(attrTypeCount)).name[0] == '<';
}
static_assert(attrTypesAreComplete(), "each type has a whole row, and there are `attrTypeCount`");

struct AttrTypeTable {
    constexpr AttrTypeTable() {
        for (std::uint32_t i = 0; i < attrTypeCount; ++i)
            rows[i] = rowOf(AttrType(i));
    }
    AttrTypeRow rows[attrTypeCount + 1];  // the last one for codes that are none
};
inline constexpr AttrTypeTable attrTypes;

// `rowOf` by a look at the table.
inline const AttrTypeRow& about(AttrType type) {
    const auto code = static_cast<std::uint32_t>(type);
    return attrTypes.rows[code < attrTypeCount ? code : attrTypeCount];
}

}  // namespace mirel_sdk
}  // namespace ko
