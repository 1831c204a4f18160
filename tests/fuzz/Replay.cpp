// Runs fuzz inputs through a target without libFuzzer: every file named on
// the command line, and every file of every folder named (in name order).
// The normal builds replay the seed corpus and the crashes found so far.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzSupport.h"

int main(int argc, char** argv)
{
    std::vector<std::string> astrFiles;
    for (int i = 1; i < argc; ++i)
    {
        if (std::filesystem::is_directory(argv[i]))
        {
            for (const auto& tEntry : std::filesystem::recursive_directory_iterator(argv[i]))
                if (tEntry.is_regular_file())
                    astrFiles.push_back(tEntry.path().string());
        }
        else
            astrFiles.push_back(argv[i]);
    }
    std::sort(astrFiles.begin(), astrFiles.end());
    if (astrFiles.empty())
    {
        std::fprintf(stderr, "replay: no inputs\n");
        return 2;
    }
    for (const std::string& strFile : astrFiles)
    {
        std::ifstream cFile(strFile, std::ios::binary);
        const std::string strData((std::istreambuf_iterator<char>(cFile)), std::istreambuf_iterator<char>());
        if (!cFile.good() && !cFile.eof())
        {
            std::fprintf(stderr, "replay: cannot read %s\n", strFile.c_str());
            return 2;
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(strData.data()), strData.size());
    }
    std::printf("replay: %zu inputs\n", astrFiles.size());
    return 0;
}
