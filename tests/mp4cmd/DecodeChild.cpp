// Runs the describe reader's escape decoding on one depot path (the first
// argument, UTF-8) and prints the result. A name that ends in '%', or in
// '%' and one character, keeps the decoder busy for ever: the tests run it
// here, in a process of its own, to see that.
#include <cstdio>

#include "mp4/MP4.h"

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    ORVANE::VCM::CFilePath cPath;
    if (!cPath.Parse(wxString::FromUTF8(argv[1]), -1, false))
        return 3;
    ORVANE::MP4::CDescribeCmd cCmd;
    const bool bDecoded = cCmd.ReplaceHexChars(cPath);
    const wxString strPath = cPath.GeneratePath(L'/', true);
    std::printf("%d %s\n", bDecoded ? 1 : 0, static_cast<const char*>(strPath.utf8_str()));
    return 0;
}
