#pragma once

namespace TestSupport
{

/// The first fields of an object as programs that were built against its class know them: `Fields` declares the same
/// types in the same order. What no function shows can be seen here.
template <typename Fields, typename Class>
const Fields& FieldsOf(const Class& object)
{
    static_assert(sizeof(Fields) <= sizeof(Class) && alignof(Fields) == alignof(Class));
    return *reinterpret_cast<const Fields*>(&object);
}

} // namespace TestSupport
