// Checks the parameter catalogue and writes what is made from it:
//
//   gencatalogue CATALOGUE.txtpb --header FILE --table FILE --manual FILE
//
// Ends with 1 and a message when the catalogue breaks a rule or a file cannot be written.

#include "tools/catalogue.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace
{

bool write(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) {
        std::fprintf(stderr, "gencatalogue: cannot write %s\n", path.c_str());
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2 || argc % 2 != 0) {
        std::fprintf(stderr, "usage: gencatalogue CATALOGUE [--header|--table|--manual FILE]...\n");
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) {
        std::fprintf(stderr, "gencatalogue: cannot read %s\n", argv[1]);
        return 1;
    }
    std::string wrong;
    const auto catalogue = parseCatalogue(text.str(), wrong);
    if (!catalogue) {
        std::fprintf(stderr, "%s", wrong.c_str());
        return 1;
    }
    bool written = true;
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string what = argv[i];
        if (what == "--header") {
            written = write(argv[i + 1], catalogueHeader(*catalogue)) && written;
        } else if (what == "--table") {
            written = write(argv[i + 1], catalogueTable(*catalogue)) && written;
        } else if (what == "--manual") {
            written = write(argv[i + 1], catalogueManual(*catalogue)) && written;
        } else {
            std::fprintf(stderr, "gencatalogue: unknown option %s\n", argv[i]);
            return 2;
        }
    }
    return written ? 0 : 1;
}
