// Checks of a Perforce server before a migration, asked with the p4 client
// the module will use: that the client runs, the server answers and the
// user may work; and that no depot file has a name on which the module's
// decoding would never finish (it would hang there, in the middle of the
// migration).
#pragma once

#include <string>

#include <vector>

#include "Authors.h"
#include "perforce/EscapedNames.h"
#include "perforce/P4Query.h"

namespace ORVANE {
namespace IMP {

class CServerChecks
{
public:
    explicit CServerChecks(const std::string& strP4) : m_strP4(strP4) {}

    // Throws EStop (failure) with one line that says what is wrong: the
    // client cannot be run, the server cannot be reached, or it does not
    // take the user. Returns the server's `p4 info` record. A server with
    // unicode enabled refuses a client without a character set: unless the
    // user chose one, every p4 of this process then runs with
    // P4CHARSET=utf8.
    TP4Record CheckConnection() const;

    // Reads the names of every depot file under the path (deleted and
    // moved-away ones included) into cNames. Throws EStop (failure) when they
    // cannot be listed, or naming the files the module could never read.
    // False when the server refuses a listing that large (MaxResults,
    // MaxScanRows): the names must then be checked as they come.
    bool ScanNames(const std::string& strRootPath, CEscapedNames& cNames) const;

    // Takes every user of one `p4 -G users -a` listing. Throws EStop
    // (failure) when the server does not answer.
    void ReadUsers(CAuthors& cAuthors) const;

private:
    std::string m_strP4;
};

// Deletes a client on the server; the server's message when it refused
// ("" when the client went).
std::string DeleteServerClient(const std::string& strP4, const std::string& strClient);

// The message that stops a run before the module meets depot files whose
// names it could never read.
std::string NeverEndingMessage(const std::vector<std::string>& astrFiles);

} // namespace IMP
} // namespace ORVANE
