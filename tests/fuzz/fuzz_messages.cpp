// Values of data and alarm parameters as anybody may have set them, and what people are shown of them.
// links: control

#include "driver.h"
#include "libmessages/alarm.h"
#include "libmessages/datafile.h"
#include "services/rvctl/names.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    CreateDescriptors();
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    lumo::config::DataFile file;
    if (file.ParseFromString(bytes)) {
        lumo::config::DataFile again;
        fuzzCheck(again.ParseFromString(file.SerializeAsString()) && again.path() == file.path());
    }
    for (const eParam_t id : {eParamLutFile, eParamAlarm1904, eParamReelName}) {
        const ParamDescriptor &descriptor = *GetDescriptor(id);
        const std::string text = valueText(descriptor, bytes);
        for (const char c : text) {
            fuzzCheck(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
        }
        const std::string json = jsonString(text);
        fuzzCheck(json.size() >= 2 && json.front() == '"' && json.back() == '"');
    }
    return 0;
}
