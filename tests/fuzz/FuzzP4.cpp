// The p4 of the fuzz targets: answers every command with prepared bytes.
//
// ORVANE_FUZZ_FEED names a folder. The command's name NAME (the argument
// after "-G", otherwise the first argument) selects the files NAME.out and
// NAME.err of that folder for standard output and error, and NAME.exit for
// the exit status (0 when there is none). Standard input is kept in NAME.in.
// Nothing else: it runs once per fuzz input, so it stays small and fast.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Copy(std::FILE* pFrom, std::FILE* pTo)
{
    char acBuffer[65536];
    for (;;)
    {
        const size_t n = std::fread(acBuffer, 1, sizeof(acBuffer), pFrom);
        if (n == 0)
            break;
        if (pTo != nullptr)
            std::fwrite(acBuffer, 1, n, pTo);
    }
}

void CopyFile(const std::string& strPath, std::FILE* pTo)
{
    std::FILE* pFile = std::fopen(strPath.c_str(), "rb");
    if (pFile == nullptr)
        return;
    Copy(pFile, pTo);
    std::fclose(pFile);
}

} // namespace

int main(int argc, char** argv)
{
    const char* pszFolder = std::getenv("ORVANE_FUZZ_FEED");
    if (pszFolder == nullptr)
    {
        std::fputs("fuzz p4: ORVANE_FUZZ_FEED is not set\n", stderr);
        return 99;
    }
    int nName = 1;
    if (argc > 2 && std::strcmp(argv[1], "-G") == 0)
        nName = 2;
    const std::string strBase = std::string(pszFolder) + "/" + (nName < argc ? argv[nName] : "none");

    std::FILE* pInput = std::fopen((strBase + ".in").c_str(), "wb");
    Copy(stdin, pInput);
    if (pInput != nullptr)
        std::fclose(pInput);

    CopyFile(strBase + ".out", stdout);
    CopyFile(strBase + ".err", stderr);
    int nExit = 0;
    if (std::FILE* pExit = std::fopen((strBase + ".exit").c_str(), "rb"))
    {
        if (std::fscanf(pExit, "%d", &nExit) != 1)
            nExit = 0;
        std::fclose(pExit);
    }
    return nExit;
}
