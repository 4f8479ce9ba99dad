#include "fuzzcatalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    qarvo::fuzz::runCatalogueInput(data, size);
    return 0;
}
