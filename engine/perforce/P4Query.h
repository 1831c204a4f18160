// The engine's own questions to the Perforce server, asked with the same
// p4 client as the module uses (its -G marshalled output), for checks
// before and around the migration: is the server there, which files does
// it hold, who are its users.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ORVANE {
namespace IMP {

// One marshalled dictionary; numbers are given as their decimal text.
typedef std::map<std::string, std::string> TP4Record;

// The record's value of the key; empty when it has none.
std::string RecordValue(const TP4Record& tRecord, const char* pszKey);

// Decodes a stream of marshalled dictionaries as p4 -G writes them.
class CMarshalDecoder
{
public:
    // Feeds bytes; every complete dictionary goes to the callback, which
    // returns false to stop. False when the bytes are not marshalled
    // dictionaries (the reason in GetError).
    bool Feed(const char* pData, size_t nSize, const std::function<bool(const TP4Record&)>& fnRecord);
    // The same, telling where each dictionary lies in everything fed so
    // far: from byte nBegin to just before nEnd.
    typedef std::function<bool(const TP4Record&, uint64_t nBegin, uint64_t nEnd)> TRangeCallback;
    bool Feed(const char* pData, size_t nSize, const TRangeCallback& fnRecord);
    // True when everything fed so far ended with a complete dictionary.
    bool AtRecordEnd() const { return m_strPending.empty() && !m_bFailed; }
    const std::string& GetError() const { return m_strError; }

private:
    // Decodes the dictionary that starts at nStart of the pending bytes: 1
    // done (nEnd just past it), 0 more bytes needed, -1 broken.
    int DecodeOne(size_t nStart, TP4Record& tRecord, size_t& nEnd);

    std::string m_strPending;
    // How many bytes fed before the pending ones.
    uint64_t m_nDropped = 0;
    std::string m_strError;
    bool m_bFailed = false;
    bool m_bStopped = false;
};

// Copies a stream of marshalled dictionaries, letting fnValue replace the
// string values it wants to (it returns true when it did); every other
// byte is copied as it is, in its order. False when the bytes are not
// dictionaries this decoder knows (strOut then holds what was copied).
bool RewriteMarshalled(const std::string& strIn, std::string& strOut,
                       const std::function<bool(const std::string& strKey, std::string& strValue)>& fnValue);

// The same, leaving out the pairs (with string values) whose key fnDrop
// names.
bool DropMarshalledPairs(const std::string& strIn, std::string& strOut,
                         const std::function<bool(const std::string& strKey)>& fnDrop);

// An "error" record of severity 3 or more (or of none): a failure, not a
// warning.
bool IsFailureRecord(const TP4Record& tRecord);

// What one p4 command gave.
struct TP4Result
{
    int nStatus = -1;
    std::vector<TP4Record> atRecords; // empty when a callback took them
    std::string strError;             // standard error, or why it did not start
    bool bDecoded = true;             // the output was marshalled dictionaries

    // The first failure record's message, else (when the command failed)
    // the first line of standard error, else a description of the exit
    // status; empty on success.
    std::string Problem() const;
    // Every failure record's message and standard error, whole.
    std::string AllMessages() const;
};

class CP4Query
{
public:
    // strP4: the p4 client to run (a name looked up along PATH, or a path).
    explicit CP4Query(const std::string& strP4) : m_strP4(strP4) {}

    // Runs "p4 -G ARGS..." and collects its records.
    TP4Result Run(const std::vector<std::string>& astrArgs) const;
    // The same, handing each record to the callback as it is decoded
    // instead of collecting them (for listings of any size).
    TP4Result Run(const std::vector<std::string>& astrArgs,
                  const std::function<bool(const TP4Record&)>& fnRecord) const;

    const std::string& GetP4() const { return m_strP4; }

private:
    std::string m_strP4;
};

} // namespace IMP
} // namespace ORVANE
