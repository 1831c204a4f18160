// Reads the files of a +k type with their keywords collapsed, and hands
// every file (collapsed or not) on to the next filter that takes it.
#pragma once

#include <functional>
#include <string>

#include "Tree.h"
#include "perforce/Keywords.h"

namespace ORVANE {
namespace IMP {

class CKeywordFilter : public CContentFilter
{
public:
    // fnMode: the keyword mode of the file at a path of the tree now.
    // pNext: the filter after this one (none: null).
    CKeywordFilter(std::function<TKeywordMode(const std::string&)> fnMode, CContentFilter* pNext)
        : m_fnMode(std::move(fnMode)), m_pNext(pNext)
    {
    }

    bool Takes(const std::string& strPath, uint64_t nSize) const override;
    bool Read(const std::string& strPath, int fd, uint64_t nSize, std::string& strText) override;
    bool LastReadKeptElsewhere() const override { return m_bLastKeptElsewhere; }

private:
    std::function<TKeywordMode(const std::string&)> m_fnMode;
    CContentFilter* m_pNext;
    bool m_bLastKeptElsewhere = false;
};

} // namespace IMP
} // namespace ORVANE
