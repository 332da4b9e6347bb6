// Url on arbitrary references.
#include "base/Exception.h"
#include "fuzz/FuzzSupport.h"
#include "net/Url.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    try {
        Url url(text);
        fuzzCheck(!url.path.empty() && url.path[0] == '/', "the path begins with /");
        fuzzCheck(url.host.find(':') == std::string::npos, "the port is cut off the host");
        url.toString();
        url.create(url.toString().c_str());
    } catch (const Exception& e) {
        fuzzCheck(e.getMessage().find(" is an invalid URL") != std::string::npos,
                  "the only failure is an invalid URL", e.getMessageCode());
    }
    return 0;
}
