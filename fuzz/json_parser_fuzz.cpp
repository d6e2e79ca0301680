// libFuzzer target for the JSON library: any bytes are parsed as a document and, when they
// load, written back in both layouts and walked with a few paths. Nothing may crash, leak,
// hang or read out of bounds.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "frame/work.h"
#include "json/jsonparser.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The real error log code runs, writing to the null device instead of a file.
    work::errorsOs = std::fopen("/dev/null", "w");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The library reads text up to its NUL, as every caller hands it a terminated buffer.
    const std::string text(reinterpret_cast<const char*>(data), size);
    JsonDocument doc;
    if (doc.loadDocument(text.c_str(), text.size()) != 0) return 0;

    // As large as the biggest answer the tool reads; a longer text wraps inside it.
    static char buffer[16384];
    doc.writeDocument(JSON_FORMAT_COMPACT, buffer, sizeof buffer);
    doc.writeDocument(JSON_FORMAT_PRETTY, buffer, sizeof buffer);
    doc.dump(work::errorsOs);

    char value[64];
    for (const char* path : {"[0]", "[1]->a", "a", "a->b[0]", "a[]", "[0]->[0]->b"}) {
        doc.getType(path);
        doc.getArraySize(path);
        doc.getValue<char*>(path);
        doc.getValue(path, value, sizeof value);
    }
    doc.setValue<char const*>("a", JSON_STRING, "\t\xE9");
    doc.removeValue("[0]");
    return 0;
}
