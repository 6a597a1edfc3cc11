#include <ko/types.h>

#include <string>

#include "foundation/ascii.h"
#include "foundation/typetable.h"

namespace ko {

const char* dataTypeName(DataType type) { return rowOf(type).name; }
DataType componentType(DataType type) { return rowOf(type).component; }
NumberType numberType(DataType type) { return singleNumber(componentType(type)); }
unsigned long componentCount(DataType type) { return rowOf(type).components; }
unsigned long componentSize(DataType type) { return rowOf(type).componentSize; }
unsigned long elementSize(DataType type) { return componentCount(type) * componentSize(type); }

namespace mirel_sdk {

const char* attrTypeName(AttrType type) { return about(type).name; }
Storage storageOf(AttrType type) { return about(type).storage; }
unsigned long componentCount(AttrType type) { return about(type).components; }
unsigned long rowLength(AttrType type) { return about(type).rowLength; }
bool isVectorType(AttrType type) { return about(type).family == Family::Vector; }

// --- Keywords -----------------------------------------------------------------------------------

namespace {

String lowered(const char* name) {
    std::string keyword = name;
    for (char& c : keyword)
        c = ascii::lower(c);
    return String(keyword);
}

// The keywords of the element types that are one number, or of those that are several.
ds::HashMap<String, DataType> elementKeywords(bool isOneNumber) {
    ds::HashMap<String, DataType> named;
    for (const DataTypeRow& row : dataTypes)
        if (row.keyword == Keyword::Yes && (row.components == 1) == isOneNumber)
            named.insert(lowered(row.name), row.type);
    return named;
}

ds::HashMap<String, AttrType> valueKeywords() {
    ds::HashMap<String, AttrType> named;
    for (std::uint32_t i = 0; i < attrTypeCount; ++i)
        if (attrTypes.rows[i].keyword == Keyword::Yes)
            named.insert(lowered(attrTypes.rows[i].name), AttrType(i));
    return named;
}

}  // namespace

const ds::HashMap<String, AttrType>& scalarTypes() {
    static const ds::HashMap<String, AttrType> types = valueKeywords();
    return types;
}

const ds::HashMap<String, DataType>& scalarBufferTypes() {
    static const ds::HashMap<String, DataType> types = elementKeywords(true);
    return types;
}

const ds::HashMap<String, DataType>& vectorBufferTypes() {
    static const ds::HashMap<String, DataType> types = elementKeywords(false);
    return types;
}

}  // namespace mirel_sdk
}  // namespace ko
