// Header::add on arbitrary lines (the input split at line feeds).
#include "base/Exception.h"
#include "fuzz/FuzzSupport.h"
#include "net/Header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    Header header;
    size_t added = 0;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = text.substr(start, end - start);
        try {
            header.add(line.c_str());
            ++added;
        } catch (const Exception& e) {
            fuzzCheck(e.getMessageCode() == "Header::add No header name found (-1)",
                      "the only failure is a missing name", e.getMessageCode());
        }
        start = end + 1;
    }
    size_t values = 0;
    for (const auto& field : header) {
        fuzzCheck(header.getFirstValue(field.first) == &field.second.front(), "first value");
        values += field.second.size();
    }
    fuzzCheck(values == added, "every added line is kept");
    header.toString();
    return 0;
}
