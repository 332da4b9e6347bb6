// Build-time tool: turns a key file into the generated sources.
//   tessavant-keys2cpp KEYFILE OUTDIR
#include <cstdio>
#include <fstream>
#include <iostream>

#include "tools/KeyFile.h"

namespace {
// Rewrites a file only when its content changes, so builds stay incremental.
bool writeIfChanged(const std::string& path, const std::string& content) {
    {
        std::ifstream old(path, std::ios::binary);
        if (old) {
            std::string existing((std::istreambuf_iterator<char>(old)),
                                 std::istreambuf_iterator<char>());
            if (existing == content)
                return true;
        }
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return static_cast<bool>(out);
}
}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: tessavant-keys2cpp KEYFILE OUTDIR\n";
        return 2;
    }
    try {
        KeyFile keys = KeyFile::load(argv[1]);
        const std::string dir = argv[2];
        if (!writeIfChanged(dir + "/KeyMaterial.h", keys.materialHeader()) ||
            !writeIfChanged(dir + "/CopyrightPicks.inc", keys.picksInclude())) {
            std::cerr << "tessavant-keys2cpp: cannot write into " << dir << "\n";
            return 1;
        }
    } catch (const KeyFile::Error& e) {
        std::cerr << "error: malformed key file: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
