// Metadata texts, into the application's record.
#include "fuzz/Fuzz.h"
#include "src/JsonSchema.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::openTv();
    CJsonSchema schema(std::string(reinterpret_cast<const char*>(data), size));
    const std::string text = schema.StringJson();
    schema.CheckMetaData();
    if (CJsonSchema(text).StringJson() != text) {
        __builtin_trap();  // what it writes, it reads
    }
    return 0;
}
