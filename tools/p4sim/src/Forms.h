// Specification forms as `client -i`/`-o` and `branch -i`/`-o` read and
// write them, and `label -o` writes them.
#pragma once

#include "Records.h"

#include <string>
#include <utility>
#include <vector>

namespace ORVANE {
namespace P4SIM {

// A parsed form: field names (as written) and values (lines joined by
// "\n"), in order. Names compare case-insensitively.
class CForm
{
public:
    // "Name: value" on one line, or "Name:" followed by lines that start
    // with a blank or a tab; '#' starts a comment line. strWhat names the
    // form in errors ("client", "branch").
    CForm(const std::string& strText, const std::string& strWhat);

    std::string Get(const std::string& strName) const;
    bool Has(const std::string& strName) const;
    // The field's lines, trimmed, blank ones left out.
    std::vector<std::string> Lines(const std::string& strName) const;
    // The description with a final line end, as the server keeps it.
    std::string Description() const;

private:
    std::vector<std::pair<std::string, std::string>> m_aFields;
};

std::string BranchFormText(const TBranchRec& tBranch, bool bExisting);
std::string LabelFormText(const TLabelRec& tLabel, bool bExisting);
std::string ClientFormText(const TClientRec& tClient, bool bExisting);

// The six option pairs in their order, each as given or its default;
// throws on a word that is none of them.
std::string NormalizeClientOptions(const std::string& strText);

} // namespace P4SIM
} // namespace ORVANE
