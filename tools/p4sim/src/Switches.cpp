#include "Switches.h"

#include "Text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <regex.h>
#include <sys/file.h>
#include <unistd.h>

namespace ORVANE {
namespace P4SIM {

namespace {

std::string EnvOr(const char* pszName, const std::string& strDefault)
{
    const char* pszValue = getenv(pszName);
    return pszValue ? std::string(pszValue) : strDefault;
}

uint32_t ReadLength(const std::string& str, size_t nPos)
{
    return uint32_t(static_cast<unsigned char>(str[nPos])) |
           (uint32_t(static_cast<unsigned char>(str[nPos + 1])) << 8) |
           (uint32_t(static_cast<unsigned char>(str[nPos + 2])) << 16) |
           (uint32_t(static_cast<unsigned char>(str[nPos + 3])) << 24);
}

// The type code of the first value becomes one no reader expects as a
// string: an integer code.
std::string GarbleType(std::string str)
{
    size_t nKey = str.find('s');
    if (nKey != std::string::npos && nKey + 5 <= str.size())
    {
        size_t nValue = nKey + 5 + ReadLength(str, nKey + 1);
        if (nValue < str.size())
            str[nValue] = 'i';
    }
    return str;
}

// The last string's length runs past the end of the output.
std::string GarbleLength(std::string str)
{
    size_t nPos = 0, nLast = std::string::npos;
    while (nPos < str.size())
    {
        char c = str[nPos];
        if (c == '{' || c == '0')
        {
            ++nPos;
        }
        else if (c == 's' && nPos + 5 <= str.size())
        {
            nLast = nPos;
            nPos += 5 + ReadLength(str, nPos + 1);
        }
        else if (c == 'i')
        {
            nPos += 5;
        }
        else
        {
            break;
        }
    }
    if (nLast != std::string::npos)
    {
        uint32_t nLength = uint32_t(str.size() - nLast) + 1000;
        for (int i = 0; i < 4; ++i)
            str[nLast + 1 + i] = char((nLength >> (8 * i)) & 0xFF);
    }
    return str;
}

std::string JsonOrNull(const char* pszVariable)
{
    const char* pszValue = getenv(pszVariable);
    return pszValue ? nlohmann::json(std::string(pszValue)).dump() : "null";
}

std::string JsonString(const std::string& str)
{
    return nlohmann::json(str).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

std::string JoinedArgs(const std::vector<std::string>& astrArgv)
{
    std::string strJoined;
    for (size_t i = 1; i < astrArgv.size(); ++i)
        strJoined += (i > 1 ? " " : "") + astrArgv[i];
    return strJoined;
}

bool MatchesEnvRegex(const char* pszVariable, const std::string& strText)
{
    const char* pszPattern = getenv(pszVariable);
    if (!pszPattern || !*pszPattern)
        return false;
    regex_t tRegex;
    if (regcomp(&tRegex, pszPattern, REG_EXTENDED | REG_NOSUB) != 0)
        return false;
    bool bMatch = regexec(&tRegex, strText.c_str(), 0, nullptr, 0) == 0;
    regfree(&tRegex);
    return bMatch;
}

TTicketState TicketState()
{
    std::string strState = EnvOr("P4SIM_TICKET", "");
    if (strState == "expired")
        return eTicketExpired;
    if (strState == "missing")
        return eTicketMissing;
    return eTicketValid;
}

bool CountDrop(const std::string& strDefaultCounter)
{
    long long nAt = 1, nTimes = 1;
    if (!ParseUInt(EnvOr("P4SIM_DROP_AT", "1"), nAt) || nAt < 1)
        nAt = 1;
    if (!ParseUInt(EnvOr("P4SIM_DROP_TIMES", "1"), nTimes))
        nTimes = 1;
    std::string strPath = EnvOr("P4SIM_DROP_COUNTER", "");
    if (strPath.empty())
        strPath = strDefaultCounter;
    int nFd = open(strPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (nFd < 0)
        return false;
    while (flock(nFd, LOCK_EX) != 0 && errno == EINTR)
    {
    }
    std::string strCount;
    char szBuffer[64];
    ssize_t nRead;
    while ((nRead = read(nFd, szBuffer, sizeof szBuffer)) != 0)
    {
        if (nRead < 0 && errno == EINTR)
            continue;
        if (nRead < 0)
            break;
        strCount.append(szBuffer, size_t(nRead));
    }
    long long nCount = 0;
    if (!ParseUInt(Trim(strCount), nCount))
        nCount = 0;
    ++nCount;
    if (lseek(nFd, 0, SEEK_SET) == 0 && ftruncate(nFd, 0) == 0)
        WriteAll(nFd, std::to_string(nCount) + "\n");
    flock(nFd, LOCK_UN);
    close(nFd);
    return nCount >= nAt && nCount - nAt < nTimes;
}

void WaitLatency()
{
    const char* pszMs = getenv("P4SIM_LATENCY_MS");
    long long nMs;
    if (!pszMs || !ParseUInt(pszMs, nMs) || nMs <= 0)
        return;
    struct timespec tWait = {time_t(nMs / 1000), long(nMs % 1000) * 1000000L};
    while (nanosleep(&tWait, &tWait) != 0 && errno == EINTR)
    {
    }
}

std::string Garble(const std::string& strOut)
{
    if (strOut.empty())
        return strOut;
    std::string strMode = EnvOr("P4SIM_GARBLE_MODE", "cut");
    if (strMode == "type")
        return GarbleType(strOut);
    if (strMode == "length")
        return GarbleLength(strOut);
    // "cut": the output ends in the middle of the first record.
    size_t nEnd = strOut.find('0', 1);
    size_t nRecordEnd = nEnd == std::string::npos ? strOut.size() : nEnd;
    return strOut.substr(0, std::max<size_t>(1, nRecordEnd / 2));
}

void Journal(const std::vector<std::string>& astrArgv, const std::string& strCwd, const std::string& strInput,
             int nStatus)
{
    const char* pszPath = getenv("P4SIM_JOURNAL");
    if (!pszPath || !*pszPath)
        return;
    nlohmann::json jArgv = astrArgv;
    std::string strLine = "{\"argv\":" + jArgv.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                          ",\"args\":" + JsonString(JoinedArgs(astrArgv)) + ",\"cwd\":" + JsonString(strCwd) +
                          ",\"P4CLIENT\":" + JsonOrNull("P4CLIENT") + ",\"P4HOST\":" + JsonOrNull("P4HOST") +
                          ",\"P4PORT\":" + JsonOrNull("P4PORT") + ",\"P4USER\":" + JsonOrNull("P4USER") +
                          ",\"stdin\":" + JsonString(strInput) + ",\"exit\":" + std::to_string(nStatus) + "}\n";
    int nFd = open(pszPath, O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (nFd < 0)
        return;
    flock(nFd, LOCK_EX);
    WriteAll(nFd, strLine);
    flock(nFd, LOCK_UN);
    close(nFd);
}

void WriteAll(int nFd, const std::string& strText)
{
    size_t nDone = 0;
    while (nDone < strText.size())
    {
        ssize_t nWritten = write(nFd, strText.data() + nDone, strText.size() - nDone);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten <= 0)
            return;
        nDone += size_t(nWritten);
    }
}

} // namespace P4SIM
} // namespace ORVANE
