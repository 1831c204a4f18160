// What a command prints, in the three forms a `p4` client can print it:
// marshalled dictionaries (-G), tagged text (-z tag) and plain text.
#pragma once

#include "Errors.h"

#include <string>
#include <utility>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// One result record: field names and values, in order.
using TRecord = std::vector<std::pair<std::string, std::string>>;

enum TOutputMode
{
    eOutputPlain,
    eOutputTagged,
    eOutputMarshal
};

class COutput
{
public:
    explicit COutput(TOutputMode eMode) : m_eMode(eMode) {}

    TOutputMode Mode() const { return m_eMode; }

    // One result record ("code" "stat" is put first in -G form). strPlain is
    // the text line(s) a client prints without -G, newline included.
    void Stat(const TRecord& aFields, const std::string& strPlain);

    // An informational message ("Client x saved."): with -G a record
    // "code" "info", "level" (an integer), "data" (the text, without a line
    // end); without -G the text and a newline on standard output.
    void Info(const std::string& strText, int nLevel = 0);

    // A message with a severity: warnings (2) and errors (3, 4) go to
    // standard error without -G; an error makes the exit status 1.
    void Message(const std::string& strText, TSeverity eSeverity, TGeneric eGeneric);

    // File content as `print` sends it: "text" or "binary" records with -G,
    // the raw bytes otherwise.
    void Content(const std::string& strData, bool bBinary);

    // Forgets everything printed so far (a command that fails as a whole).
    void Discard();

    const std::string& StdOut() const { return m_strOut; }
    const std::string& StdErr() const { return m_strErr; }
    TExitStatus ExitStatus() const { return m_bFailed ? eExitFailed : eExitOk; }

    // Marshal encoding (Python marshal version 0) of a string and of an
    // integer.
    static void PutString(std::string& strOut, const std::string& str);
    static void PutInt(std::string& strOut, int n);

private:
    // "{", then "code" and its value.
    void OpenRecord(const char* pszCode);

    TOutputMode m_eMode;
    std::string m_strOut;
    std::string m_strErr;
    bool m_bFailed = false;
};

} // namespace P4SIM
} // namespace ORVANE
