// libFuzzer entry for the method argument parser. The first byte picks the
// method, the rest is the argument as it would arrive.
#include "server/methodargument.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const auto method = CMethodArgument::Method(data[0] % 3);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    CMethodArgument arg;
    std::string error;
    if (!CMethodArgument::Parse(method, text, arg, error))
        return error.empty() ? (std::abort(), 0) : 0;
    // What is accepted is usable: a path, a known kind, only fields the kind has.
    if (arg.path.empty() || arg.path.find('\0') != std::string::npos)
        std::abort();
    if (method != CMethodArgument::Method::Delete &&
        (arg.kind < CMethodArgument::KindChannel || arg.kind > CMethodArgument::KindTag ||
         arg.values.size() > 16))
        std::abort();
    return 0;
}
