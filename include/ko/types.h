// The types of the format: element types of buffers, types of inputs, their names, keywords,
// layouts, and which values fit which inputs.
#pragma once

#include <cstdint>
#include <type_traits>

#include <ko/ds.h>
#include <ko/foundation.h>

#pragma GCC visibility push(default)

namespace ko {

// The layout of one buffer element. Suffixes: f float, d double, i and u 32-bit integers, 8 bytes.
enum class DataType : std::uint32_t {
    Null,
    Bool,
    Char,
    Byte,
    Int16,
    Int32,
    Int64,
    UInt16,
    UInt32,
    UInt64,
    Float,
    Double,
    Ptr,
    Vec2f,
    Vec2d,
    Vec2i,
    Vec2u,
    Vec3f,
    Vec3d,
    Vec3i,
    Vec3u,
    Vec4f,
    Vec4d,
    Vec4i,
    Vec4u,
    Pos2f,
    Pos2d,
    Pos2i,
    Pos3f,
    Pos3d,
    Pos3i,
    Quatf,
    Quatd,
    Rgbf,
    Rgbd,
    Rgb8,
    Rgbaf,
    Rgbad,
    Rgba8,
    Mat3f,
    Mat3d,
    Mat3i,
    Mat4f,
    Mat4d,
    Mat4i,
    Xformf,
    Xformd,
    Xformi,
    Aabbf,
    Aabbd,
    Aabbi,
    Obbf,
    Obbd,
    Obbi,
    Hsvf,
    Hsvd,
    Hslf,
    Hsld,
    Argb8,
    ColorRef,
};

inline constexpr std::uint32_t dataTypeCount = 60;

// What one number of a buffer is; None for the numbers of an unknown type.
enum class NumberType : std::uint32_t {
    None,
    Bool,
    Char,
    Byte,
    Int16,
    Int32,
    Int64,
    UInt16,
    UInt32,
    UInt64,
    Float,
    Double,
    Ptr,
};

// "Vec3f" for DataType::Vec3f; "<unknown>" for a code that is none. The text is constant.
const char* dataTypeName(DataType type);
// The scalar type of an element's components: Float for Vec3f. Null for an unknown type.
DataType componentType(DataType type);
NumberType numberType(DataType type);
// Numbers in one element: 3 for Vec3f. 0 for an unknown type.
unsigned long componentCount(DataType type);
// Bytes of one component and of one element; 0 for an unknown type.
unsigned long componentSize(DataType type);
unsigned long elementSize(DataType type);
// The scalar type that a T is: Float for float.
template <class T>
constexpr DataType dataTypeOf();

namespace mirel_sdk {

// The type of an input and of a value.
enum class AttrType : std::uint32_t {
    Null,
    Bool,
    Int,
    UInt,
    Real,
    Vec2,
    Vec3,
    Vec4,
    Pos2,
    Pos3,
    Quat,
    Rgba,
    Mat3,
    Mat4,
    String,
    Node,
    Buffer,
    Array,
    Object,
};

inline constexpr std::uint32_t attrTypeCount = 19;

// What a value consists of: nothing, one number, several components, a text, the numbers of a
// buffer, the elements of an array, the inputs of an object.
enum class Storage : std::uint8_t {
    None,
    Bool,
    Int,
    UInt,
    Real,
    Components,
    Text,
    Buffer,
    Elements,
    Inputs,
};

// "Vec3" for AttrType::Vec3; "<unknown>" for a code that is none. The text is constant.
const char* attrTypeName(AttrType type);
// What values of the type consist of; None for a code that is none.
Storage storageOf(AttrType type);
// Numbers in a value of this type: 3 for Vec3; 0 where a value is not made of numbers.
unsigned long componentCount(AttrType type);
// Numbers in one row of a matrix, or all that a value has: 3 for Mat3, 4 for Vec4.
unsigned long rowLength(AttrType type);
// Vectors, points, quaternions and colours.
bool isVectorType(AttrType type);

// Whether a value of type `from` may be stored into an input of type `to`; `*narrowing` tells
// whether that loses components or precision.
bool canConvert(AttrType from, AttrType to, bool* narrowing);

// Keyword maps, lower-case keyword to type. Built on first use, read-only, alive to the end of the
// process.
//
// Keywords that may stand before a parenthesised value: "vec3".
const ds::HashMap<String, AttrType>& scalarTypes();
// Element types of buffers whose elements are single numbers: "float".
const ds::HashMap<String, DataType>& scalarBufferTypes();
// Element types of buffers whose elements are math values: "vec3f".
const ds::HashMap<String, DataType>& vectorBufferTypes();

}  // namespace mirel_sdk

template <class T>
constexpr DataType dataTypeOf() {
    constexpr bool isSigned = std::is_signed_v<T>;
    if constexpr (std::is_same_v<T, bool>) {
        return DataType::Bool;
    } else if constexpr (std::is_same_v<T, float>) {
        return DataType::Float;
    } else if constexpr (std::is_same_v<T, double>) {
        return DataType::Double;
    } else {
        static_assert(std::is_integral_v<T>, "buffers are made of numbers");
        switch (sizeof(T)) {
            case 1: return isSigned ? DataType::Char : DataType::Byte;
            case 2: return isSigned ? DataType::Int16 : DataType::UInt16;
            case 4: return isSigned ? DataType::Int32 : DataType::UInt32;
            default: return isSigned ? DataType::Int64 : DataType::UInt64;
        }
    }
}

}  // namespace ko

#pragma GCC visibility pop
