// CZipUtil as a process: zip-once pack FOLDER/ ARCHIVE, which removes the folder, or zip-once unpack ARCHIVE FOLDER/.
#include <cstdio>
#include <string>

#include "src/ZipUtil.h"

int main(int argc, char** argv) {
    const std::string operation = argc == 4 ? argv[1] : "";
    if (operation != "pack" && operation != "unpack") {
        std::fprintf(stderr, "usage: zip-once pack FOLDER/ ARCHIVE | unpack ARCHIVE FOLDER/\n");
        return 2;
    }
    CZipUtil zip;
    return (operation == "pack" ? zip.CreateZipFile(argv[2], argv[3]) : zip.UnzipFile(argv[2], argv[3])) ? 0 : 1;
}
