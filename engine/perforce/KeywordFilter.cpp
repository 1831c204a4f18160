#include "perforce/KeywordFilter.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "host/ChildProcess.h"

namespace ORVANE {
namespace IMP {

bool CKeywordFilter::Takes(const std::string& strPath, uint64_t nSize) const
{
    return m_fnMode(strPath) != eKeywordsNone || (m_pNext && m_pNext->Takes(strPath, nSize));
}

bool CKeywordFilter::Read(const std::string& strPath, int fd, uint64_t nSize, std::string& strText)
{
    const TKeywordMode eMode = m_fnMode(strPath);
    m_bLastKeptElsewhere = false;
    if (eMode == eKeywordsNone)
    {
        const bool bRead = m_pNext && m_pNext->Read(strPath, fd, nSize, strText);
        m_bLastKeptElsewhere = bRead && m_pNext->LastReadKeptElsewhere();
        return bRead;
    }
    std::string strContent;
    char ach[65536];
    while (strContent.size() < nSize)
    {
        const ssize_t n = ::read(fd, ach, sizeof(ach));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;
        strContent.append(ach, static_cast<size_t>(n));
    }
    if (strContent.size() > nSize)
        strContent.resize(static_cast<size_t>(nSize));
    CollapseKeywords(strContent, eMode);
    if (!m_pNext || !m_pNext->Takes(strPath, strContent.size()))
    {
        strText.swap(strContent);
        return true;
    }
    // The next filter reads a file: the collapsed text, in memory.
    const int fdMemory = ::memfd_create("orvane-keywords", MFD_CLOEXEC);
    if (fdMemory < 0)
        return false;
    const bool bRead = VCM::WriteAll(fdMemory, strContent.data(), strContent.size()) &&
                       ::lseek(fdMemory, 0, SEEK_SET) == 0 &&
                       m_pNext->Read(strPath, fdMemory, strContent.size(), strText);
    ::close(fdMemory);
    m_bLastKeptElsewhere = bRead && m_pNext->LastReadKeptElsewhere();
    return bRead;
}

} // namespace IMP
} // namespace ORVANE
