#include "StringTable.h"

namespace ORVANE {
namespace IMP {

uint64_t CStringTable::Hash(std::string_view str)
{
    // FNV-1a.
    uint64_t n = 14695981039346656037ull;
    for (char c : str)
        n = (n ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    return n;
}

size_t CStringTable::Slot(std::string_view str, uint64_t nHash) const
{
    const size_t nMask = m_anSlots.size() - 1;
    for (size_t i = static_cast<size_t>(nHash) & nMask;; i = (i + 1) & nMask)
        if (m_anSlots[i] == 0 || At(m_anSlots[i] - 1) == str)
            return i;
}

void CStringTable::Grow()
{
    std::vector<uint32_t> anSlots(m_anSlots.empty() ? 64 : m_anSlots.size() * 2, 0);
    m_anSlots.swap(anSlots);
    for (uint32_t nID = 0; nID < Size(); ++nID)
    {
        const std::string_view str = At(nID);
        m_anSlots[Slot(str, Hash(str))] = nID + 1;
    }
}

uint32_t CStringTable::Intern(std::string_view str)
{
    // At most half full.
    if ((Size() + 1) * 2 > m_anSlots.size())
        Grow();
    const size_t nSlot = Slot(str, Hash(str));
    if (m_anSlots[nSlot] != 0)
        return m_anSlots[nSlot] - 1;
    const uint32_t nID = static_cast<uint32_t>(Size());
    m_strBytes.append(str.data(), str.size());
    m_anStart.push_back(static_cast<uint32_t>(m_strBytes.size()));
    m_anSlots[nSlot] = nID + 1;
    return nID;
}

uint32_t CStringTable::Find(std::string_view str) const
{
    if (m_anSlots.empty())
        return npos;
    const size_t nSlot = Slot(str, Hash(str));
    return m_anSlots[nSlot] != 0 ? m_anSlots[nSlot] - 1 : npos;
}

std::string_view CStringTable::At(uint32_t nID) const
{
    return std::string_view(m_strBytes.data() + m_anStart[nID], m_anStart[nID + 1] - m_anStart[nID]);
}

size_t CStringTable::Bytes() const
{
    return m_strBytes.capacity() + (m_anStart.capacity() + m_anSlots.capacity()) * sizeof(uint32_t);
}

void CStringTable::Clear()
{
    std::string().swap(m_strBytes);
    std::vector<uint32_t>{0}.swap(m_anStart);
    std::vector<uint32_t>().swap(m_anSlots);
}

} // namespace IMP
} // namespace ORVANE
