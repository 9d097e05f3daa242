#include "model/rangevalidate.h"

#include "model/modbus_types.h"

namespace RangeValidate {

int64_t GetTypeMin(unsigned short vt)
{
    switch (vt) {
    case VT_I1:
        return -128;
    case VT_I2:
        return -32768;
    case VT_I4:
        return -2147483648LL;
    case VT_R4:
        return -10000000;
    case VT_R8:
        return -1000000000;
    default:
        return 0;
    }
}

uint64_t GetTypeMax(unsigned short vt)
{
    switch (vt) {
    case VT_I1:
        return 127;
    case VT_I2:
        return 32767;
    case VT_I4:
        return 2147483647;
    case VT_UI1:
        return 255;
    case VT_UI2:
        return 65535;
    case VT_UI4:
        return 4294967295ULL;
    case VT_R4:
        return 10000000;
    case VT_R8:
        return 1000000000;
    case VT_BOOL:
        return 1;
    default:
        return 0;
    }
}

} // namespace RangeValidate
