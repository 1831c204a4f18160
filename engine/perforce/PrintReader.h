// Reads the marshalled output of "p4 -G print" as it arrives: each file's
// header record, then its content in pieces, without ever holding a file's
// content whole (a file of gigabytes passes through a few kilobytes).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "perforce/P4Query.h"

namespace ORVANE {
namespace IMP {

class CPrintReader
{
public:
    class ISink
    {
    public:
        virtual ~ISink() = default;
        // A file's header ("code" "stat": depotFile, rev, type, ...); its
        // content follows in OnContent calls. False stops the reading.
        virtual bool OnFile(const TP4Record& tStat) = 0;
        virtual bool OnContent(const char* pData, size_t nSize) = 0;
        // A record that is neither a header nor content: an error, a
        // warning or an info message.
        virtual void OnMessage(const TP4Record& tRecord) = 0;
    };

    explicit CPrintReader(ISink& rSink) : m_rSink(rSink) {}

    // Feeds the next bytes of the output. False when they are no
    // marshalled dictionaries or the sink stopped (the reason in Error()).
    bool Feed(const char* pData, size_t nSize);
    // Whether everything fed so far ended with a complete record.
    bool AtRecordEnd() const { return m_eState == eDictStart && !m_bFailed; }
    const std::string& Error() const { return m_strError; }

private:
    enum TState
    {
        eDictStart,
        eKeyType,
        eLength,
        eKeyBytes,
        eValueType,
        eValueBytes,
        eInteger
    };

    bool Fail(const std::string& strWhy);
    // Consumes bytes of a fixed-size part (a length, an integer); true when
    // it is complete.
    bool TakeFixed(const char*& p, const char* pEnd);
    bool EndValue();
    bool EndRecord();
    bool IsContent() const;

    ISink& m_rSink;
    TState m_eState = eDictStart;
    bool m_bKey = true;        // the string being read is a key
    bool m_bStreaming = false; // the value being read goes to the sink
    unsigned char m_ach[4] = {};
    unsigned m_nHave = 0; // bytes of m_ach filled
    uint32_t m_nLeft = 0; // bytes of the string still to come
    std::string m_strKey;
    std::string m_strValue;
    TP4Record m_tRecord;
    bool m_bFailed = false;
    std::string m_strError;
};

} // namespace IMP
} // namespace ORVANE
