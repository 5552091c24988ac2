// The text of a parameter catalogue, as the generator reads it.
// links: catalogue

#include "driver.h"
#include "tools/catalogue.h"

#include <google/protobuf/stubs/logging.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool isQuiet = [] {
        google::protobuf::SetLogHandler(nullptr);
        return true;
    }();
    std::string wrong;
    const auto catalogue = parseCatalogue({reinterpret_cast<const char *>(data), size}, wrong);
    fuzzCheck(isQuiet && catalogue.has_value() == wrong.empty());
    if (catalogue) {
        fuzzCheck(!catalogueHeader(*catalogue).empty() && !catalogueTable(*catalogue).empty() &&
                  !catalogueManual(*catalogue).empty());
    }
    return 0;
}
