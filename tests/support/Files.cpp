#include "Files.h"

#include <fstream>
#include <iterator>

#include <sys/stat.h>

namespace ORVANE {
namespace TEST {

std::string ReadWholeFile(const std::string& strPath)
{
    std::ifstream cIn(strPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(cIn), std::istreambuf_iterator<char>());
}

bool WriteWholeFile(const std::string& strPath, const std::string& strData)
{
    std::ofstream cOut(strPath, std::ios::binary | std::ios::trunc);
    cOut.write(strData.data(), static_cast<std::streamsize>(strData.size()));
    cOut.close();
    return cOut.good();
}

bool Exists(const std::string& strPath)
{
    struct stat tStat;
    return ::lstat(strPath.c_str(), &tStat) == 0;
}

} // namespace TEST
} // namespace ORVANE
