// A stand-in for the p4 client that answers with prepared bytes.
//
// MP4CMD_FEED names a folder. For the argument text "A B C" the files
// "A_B_C.out", ".err" and ".exit" of that folder (named by FeedName) give the bytes for standard
// output, standard error and the exit status; "default.out" and so on are
// used when there is no file for the arguments. Every invocation appends its
// argument text and a line end to "args.log".
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "Files.h"
#include "Text.h"

namespace {

bool ReadFile(const std::string& strPath, std::string& strData)
{
    if (!ORVANE::TEST::Exists(strPath))
        return false;
    strData = ORVANE::TEST::ReadWholeFile(strPath);
    return true;
}

bool ReadAnswer(const std::string& strFolder, const std::string& strName, const char* pszExt, std::string& strData)
{
    return ReadFile(strFolder + "/" + strName + pszExt, strData) ||
           ReadFile(strFolder + "/default" + pszExt, strData);
}

} // namespace

int main(int argc, char** argv)
{
    const char* pszFolder = std::getenv("MP4CMD_FEED");
    if (pszFolder == nullptr)
    {
        std::fputs("feeder: MP4CMD_FEED is not set\n", stderr);
        return 99;
    }
    const std::string strFolder(pszFolder);

    std::string strArgs;
    for (int i = 1; i < argc; ++i)
    {
        if (i > 1)
            strArgs += ' ';
        strArgs += argv[i];
    }
    {
        std::ofstream cLog(strFolder + "/args.log", std::ios::binary | std::ios::app);
        cLog << strArgs << '\n';
    }

    const std::string strName = ORVANE::TEST::FeedName(strArgs);

    std::string strData;
    if (ReadAnswer(strFolder, strName, ".out", strData))
        std::fwrite(strData.data(), 1, strData.size(), stdout);
    if (ReadAnswer(strFolder, strName, ".err", strData))
        std::fwrite(strData.data(), 1, strData.size(), stderr);
    int nExit = 0;
    if (ReadAnswer(strFolder, strName, ".exit", strData))
        nExit = std::atoi(strData.c_str());
    return nExit;
}
