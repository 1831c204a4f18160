// The dump: everything received from the provider, one JSON object a line.
#pragma once

#include <cstdio>
#include <string>

#include "Driver.h"

namespace ORVANE {
namespace IMP {

class CDumpWriter
{
public:
    CDumpWriter() = default;
    CDumpWriter(const CDumpWriter&) = delete;
    CDumpWriter& operator=(const CDumpWriter&) = delete;
    ~CDumpWriter() { Close(); }

    // Writes to the file, or to standard output for "-". Throws EStop when
    // the file cannot be made.
    void Open(const std::string& strFile);
    // Writes to an open file that stays the caller's.
    void Attach(std::FILE* pFile);
    bool IsOpen() const { return m_pFile != nullptr; }
    bool IsStandardOutput() const { return m_pFile == stdout; }
    void Close();

    // {"kind":"stream","id":..,"parent":..,"name":..,"src":..,"dst":..,"base":..}
    void Stream(const TStreamInfo& tStream);
    // {"kind":"change","stream":..,"id":..,"user":..,"time":..,"comment":..,"items":..}
    void Change(unsigned int nStream, const TChangeInfo& tChange);
    // {"kind":"item","change":..,"type":..,"path":..,"revision":..,"sha256":..}; the type
    // by name ("add", "modify", "delete") or number, the digest null when
    // there is no file.
    void Item(const TChangeItemInfo& tItem, const std::string* pstrSha256);
    // {"kind":"failure","call":..,"result":..}
    void Failure(const std::string& strCall, int nResult);

private:
    std::FILE* m_pFile = nullptr;
    bool m_bOwned = false;
};

} // namespace IMP
} // namespace ORVANE
