// Checks of a Perforce server before a migration, asked with the p4 client
// the module will use: that the client runs, the server answers and the
// user may work; and that no depot file has a name on which the module's
// decoding would never finish (it would hang there, in the middle of the
// migration).
#pragma once

#include <string>

#include "EscapedNames.h"

namespace ORVANE {
namespace IMP {

class CServerChecks
{
public:
    explicit CServerChecks(const std::string& strP4) : m_strP4(strP4) {}

    // Throws EStop (failure) with one line that says what is wrong: the
    // client cannot be run, the server cannot be reached, or it does not
    // take the user.
    void CheckConnection() const;

    // Reads the names of every depot file under the path (deleted and
    // moved-away ones included) into cNames. Throws EStop (failure) when they
    // cannot be listed, or naming the files the module could never read.
    void ScanNames(const std::string& strRootPath, CEscapedNames& cNames) const;

private:
    std::string m_strP4;
};

} // namespace IMP
} // namespace ORVANE
