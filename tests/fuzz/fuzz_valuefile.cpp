// The file in which the parameter store keeps values, as anything may have left it.
// links: store

#include "driver.h"
#include "services/rvstore/storevalues.h"
#include "services/rvstore/valuefile.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // In memory where there is such a place: every run makes the file durable several times.
    static const std::string folder = [] {
        const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        return std::string(base) + "/fuzz-valuefile-" + std::to_string(getpid());
    }();
    const std::string path = folder + "/v.db";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    bool isWritten = false;
    {
        ValueFile file(path);
        std::string problem;
        StoreValues values([](const StoreValues::Entry &) {});
        for (const auto &[id, value] : file.load(problem)) {
            values.restore(id, value, {});
        }
        for (const auto &entry : values.entries()) {
            fuzzCheck(entry.descriptor->check(entry.value) == ValueError::None);
        }
        fuzzCheck(problem.empty() || values.find(eParamEncodeType)->value == ParamValue(0u));
        file.keep(eParamReelName, std::string("fuzz"), 1);
        file.hurry();
        for (int i = 0; i < 10000 && !isWritten && !file.progress().isFailing; i++) {
            usleep(100);
            isWritten = file.progress().revision == 1;
        }
    }
    if (isWritten) {
        ValueFile file(path);
        std::string problem;
        bool isFound = false;
        for (const auto &[id, value] : file.load(problem)) {
            isFound = isFound || (id == eParamReelName && value == ParamValue(std::string("fuzz")));
        }
        fuzzCheck(isFound);
    }
    std::filesystem::remove_all(folder);
    return 0;
}
