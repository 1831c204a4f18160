// A path held as a list of items, one per component, no separators stored.
#pragma once

#include <vector>

#include "host/String.h"

namespace ORVANE {
namespace VCM {

class CFilePathMemPool;

// Item model:
//   "//depot/main/..."  ->  "/", "depot", "main", "..."   (depot syntax)
//   "/tmp/ws/main"      ->  "", "tmp", "ws", "main"       (absolute local)
//   "a/b/c.txt"         ->  "a", "b", "c.txt"             (relative)
// Joining the items with '/' gives the text back.
class CFilePath
{
public:
    CFilePath() = default;
    explicit CFilePath(CFilePathMemPool* pPool) { (void)pPool; }
    CFilePath(const CFilePath& other, CFilePathMemPool* pPool = nullptr) : m_astrItems(other.m_astrItems)
    {
        (void)pPool;
    }
    CFilePath& operator=(const CFilePath& other) = default;
    ~CFilePath() = default;

    // Replaces the items with those of the text (nLength -1: up to the
    // terminator). False, with the path left empty, for text that is no
    // path: empty text, a NUL inside the given length, or an empty
    // component anywhere but at the start ("a//b"). One trailing separator
    // is accepted and dropped. bFlag is accepted for compatibility.
    bool Parse(const wchar_t* psz, int nLength = -1, bool bFlag = false);

    void Add(const CString& strItem) { m_astrItems.push_back(strItem); }
    unsigned GetItemCount() const { return static_cast<unsigned>(m_astrItems.size()); }
    // The text of item nIndex (empty text when out of range).
    const wchar_t* GetItemText(unsigned nIndex, unsigned* pnLength = nullptr) const;
    void RemoveLastItem()
    {
        if (!m_astrItems.empty())
            m_astrItems.pop_back();
    }
    void ReplaceItem(unsigned nIndex, const wchar_t* psz)
    {
        if (nIndex < m_astrItems.size())
            m_astrItems[nIndex] = psz;
    }
    // Item nIndex becomes the nLength characters at p (NULs included), in
    // the item's own storage; the index one past the last adds an item.
    void SetItem(unsigned nIndex, const wchar_t* p, size_t nLength)
    {
        if (nIndex < m_astrItems.size())
            m_astrItems[nIndex].assign(p, nLength);
        else if (nIndex == m_astrItems.size())
            m_astrItems.emplace_back(wxString(p, nLength));
    }
    // Drops the items from nCount on.
    void KeepItems(unsigned nCount)
    {
        if (nCount < m_astrItems.size())
            m_astrItems.resize(nCount);
    }
    void RemoveAll() { m_astrItems.clear(); }
    bool IsEmpty() const { return m_astrItems.empty(); }

    // The path in the platform's form (on this platform the '/' form).
    CString GeneratePath() const;
    void GeneratePath(CString& strOut) const { strOut = GeneratePath(); }
    // The items joined with chSeparator. bFlag is accepted for compatibility.
    CString GeneratePath(wchar_t chSeparator, bool bFlag) const;
    // This (relative) path placed under cBase, in the platform's form.
    CString GeneratePath(const CFilePath& cBase, unsigned nFlags) const;

    // True when this path lies at or below cOther: its leading items equal
    // all of cOther's items (equal paths qualify). The items beyond cOther
    // then go into *pRemainder when it is given.
    bool IsSupersetOf(const CFilePath& cOther, CFilePath* pRemainder, bool bCaseInsensitive) const;
    // Item-by-item equality, ignoring case when bCaseInsensitive.
    bool IsEqualTo(const CFilePath& cOther, bool bCaseInsensitive) const;

    bool operator==(const CFilePath& other) const { return m_astrItems == other.m_astrItems; }
    bool operator!=(const CFilePath& other) const { return !(*this == other); }

private:
    static bool ItemsEqual(const CString& a, const CString& b, bool bCaseInsensitive)
    {
        return bCaseInsensitive ? a.CmpNoCase(b) == 0 : a == b;
    }

    std::vector<CString> m_astrItems;
};

} // namespace VCM
} // namespace ORVANE
