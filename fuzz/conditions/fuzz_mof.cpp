#include "fuzzmof.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (!qarvo::fuzz::runMofInput(data, size))
        std::abort();
    return 0;
}
