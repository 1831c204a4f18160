// A stand-in for the p4 client that answers "-G changes PATH" with a listing
// of many changelists, newest first, as a server with that much history
// would: MP4CMD_FLOOD_CHANGES records (default 1,000,000), written as they
// are made, so that the listing costs this program no memory.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Le32(std::string& str, unsigned long n)
{
    for (int i = 0; i < 4; ++i)
        str += static_cast<char>((n >> (8 * i)) & 0xFF);
}

void Pair(std::string& str, const char* pszKey, const std::string& strValue)
{
    const size_t nKey = std::strlen(pszKey);
    str += 's';
    Le32(str, nKey);
    str.append(pszKey, nKey);
    str += 's';
    Le32(str, strValue.size());
    str += strValue;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3 || std::strcmp(argv[1], "-G") != 0 || std::strcmp(argv[2], "changes") != 0)
    {
        std::fputs("flood: only -G changes is answered\n", stderr);
        return 1;
    }
    const char* pszCount = std::getenv("MP4CMD_FLOOD_CHANGES");
    const unsigned long nCount = pszCount ? std::strtoul(pszCount, nullptr, 10) : 1000000ul;
    std::string strRecord;
    std::string strBuffer;
    for (unsigned long n = nCount; n > 0; --n)
    {
        strRecord = "{";
        Pair(strRecord, "code", "stat");
        Pair(strRecord, "change", std::to_string(n));
        Pair(strRecord, "time", std::to_string(1000000000ul + n * 60));
        Pair(strRecord, "user", "user" + std::to_string(n % 97));
        Pair(strRecord, "client", "client" + std::to_string(n % 13));
        Pair(strRecord, "status", "submitted");
        Pair(strRecord, "changeType", "public");
        Pair(strRecord, "path", "//depot/main/...");
        Pair(strRecord, "desc", "Change number " + std::to_string(n) + " of the flood\n");
        strRecord += '0';
        strBuffer += strRecord;
        if (strBuffer.size() >= (1u << 16))
        {
            if (std::fwrite(strBuffer.data(), 1, strBuffer.size(), stdout) != strBuffer.size())
                return 1;
            strBuffer.clear();
        }
    }
    return std::fwrite(strBuffer.data(), 1, strBuffer.size(), stdout) == strBuffer.size() && std::fflush(stdout) == 0
               ? 0
               : 1;
}
