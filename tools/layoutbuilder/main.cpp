// Writes the default layout packages from their description:
//   layoutbuilder DESCRIPTION.json OUTPUT_FOLDER
// One package for the main form and one for each variant, named after them.
#include <fstream>
#include <iostream>
#include <sstream>

#include "layout/BLLayoutController.h"
#include "layout/DefaultLayout.h"
#include "layout/LayoutPackage.h"

int main(int argc, char** argv) {
    using namespace brassline;
    if (argc != 3) {
        std::cerr << "usage: layoutbuilder DESCRIPTION.json OUTPUT_FOLDER\n";
        return 2;
    }
    std::ifstream stream(argv[1], std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream) {
        std::cerr << "layoutbuilder: cannot read " << argv[1] << "\n";
        return 1;
    }
    const std::string description = text.str();
    for (const char* variant : {"", "Letter"}) {
        std::string error;
        const std::optional<LayoutArchive> archive = buildLayoutFromDescription(description, variant, &error);
        if (!archive) {
            std::cerr << "layoutbuilder: " << error << "\n";
            return 1;
        }
        const std::string name = describedLayoutName(description, variant);
        const std::string path = std::string(argv[2]) + "/" + name + ".brassline";
        // The packages carry no fonts: the default layout uses the fonts the system installs.
        if (!writeLayoutPackage(path, name, stringFromSize(describedPaperSize(description, variant)),
                                writeLayoutArchive(*archive), {}, &error)) {
            std::cerr << "layoutbuilder: " << error << "\n";
            return 1;
        }
    }
    return 0;
}
