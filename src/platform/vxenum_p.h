#ifndef VXENUM_P_H
#define VXENUM_P_H

// Not installed.

#include <cstring>

// Stores @p value in an enum field of a platform record. The platform is C
// and reads the field as an int, so a value outside the enumerators (from a
// bad argument, which the platform then refuses) is handed on as it is,
// without forming an out-of-range enum value in C++.
template <typename Enum>
inline void vxSetEnum(Enum &field, int value)
{
    static_assert(sizeof(Enum) == sizeof(int), "platform enums are int-sized");
    std::memcpy(&field, &value, sizeof(value));
}

#endif // VXENUM_P_H
