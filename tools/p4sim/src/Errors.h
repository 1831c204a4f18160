// The failures of p4sim, numbered as Perforce numbers its messages: a
// severity and a generic code travel with every error record of -G output.
#pragma once

#include <stdexcept>
#include <string>

namespace ORVANE {
namespace P4SIM {

// How bad a message is: 2 a warning (exit status 0), 3 a failed command,
// 4 a fatal one (exit status 1 for both).
enum TSeverity
{
    eSeverityEmpty = 0,
    eSeverityInfo = 1,
    eSeverityWarning = 2,
    eSeverityFailed = 3,
    eSeverityFatal = 4
};

// What kind of failure: the generic code of Perforce's messages.
enum TGeneric
{
    eGenericNone = 0,
    eGenericUsage = 1,
    eGenericUnknown = 2,
    eGenericContext = 3,
    eGenericIllegal = 4,
    eGenericProtect = 6,
    eGenericEmpty = 17,
    eGenericFault = 33,
    eGenericClient = 34,
    eGenericAdmin = 35,
    eGenericConfig = 36,
    eGenericComm = 38
};

// Exit statuses of the program.
enum TExitStatus
{
    eExitOk = 0,
    eExitFailed = 1,
    eExitUsage = 2
};

// A failure that ends a p4 command: the text a real server would send.
class EP4Error : public std::runtime_error
{
public:
    explicit EP4Error(const std::string& strText, TSeverity eSeverity = eSeverityFailed,
                      TGeneric eGeneric = eGenericUsage)
        : std::runtime_error(strText), m_eSeverity(eSeverity), m_eGeneric(eGeneric)
    {
    }
    TSeverity Severity() const { return m_eSeverity; }
    TGeneric Generic() const { return m_eGeneric; }

private:
    TSeverity m_eSeverity;
    TGeneric m_eGeneric;
};

// A command that went past the server's MaxResults or MaxScanRows: it
// fails with nothing but this message, whatever it had printed before.
class ELimitError : public EP4Error
{
public:
    explicit ELimitError(const std::string& strText) : EP4Error(strText, eSeverityFailed, eGenericAdmin) {}
};

// A wrong command line of p4sim's own commands (admin, help): the message,
// then the usage text, on standard error, exit status 2.
class EUsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace P4SIM
} // namespace ORVANE
