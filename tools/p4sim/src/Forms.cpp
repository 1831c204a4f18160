#include "Forms.h"

#include "Errors.h"
#include "Text.h"

namespace ORVANE {
namespace P4SIM {

namespace {

EP4Error SyntaxError(const std::string& strWhat, const std::string& strLine)
{
    return EP4Error("Error in " + strWhat + " specification.\nSyntax error in '" + Trim(strLine) + "'.");
}

const char* const s_apszOptionPairs[][2] = {{"allwrite", "noallwrite"}, {"clobber", "noclobber"},
                                            {"compress", "nocompress"}, {"locked", "unlocked"},
                                            {"modtime", "nomodtime"},   {"rmdir", "normdir"}};
const size_t s_nOptionPairs = sizeof s_apszOptionPairs / sizeof *s_apszOptionPairs;

// The Update and Access fields of an existing spec, and the View lines.
std::string FormDates(long long nUpdated, long long nAccessed)
{
    return "Update:\t" + FormatDateTime(nUpdated) + "\n\nAccess:\t" + FormatDateTime(nAccessed) + "\n\n";
}

std::string FormView(const std::vector<std::string>& astrView)
{
    std::string strText = "View:\n";
    for (const std::string& strLine : astrView)
        strText += "\t" + strLine + "\n";
    return strText + "\n";
}

// The fields of a branch or label form after its comment.
std::string ViewSpecFields(const std::string& strKeyword, const TViewSpecRec& tSpec, bool bExisting)
{
    std::string strText = strKeyword + ":\t" + tSpec.strName + "\n\n";
    if (bExisting)
        strText += FormDates(tSpec.nUpdated, tSpec.nAccessed);
    strText += "Owner:\t" + tSpec.strOwner + "\n\n";
    strText += "Description:\n" + Indented(tSpec.strDescription) + "\n";
    strText += "Options:\t" + tSpec.strOptions + "\n\n";
    return strText + FormView(tSpec.astrView);
}

} // namespace

CForm::CForm(const std::string& strText, const std::string& strWhat)
{
    for (std::string strLine : SplitLines(strText))
    {
        if (!strLine.empty() && strLine.back() == '\r')
            strLine.pop_back();
        if (Trim(strLine).empty() || strLine[0] == '#')
            continue;
        if (strLine[0] == ' ' || strLine[0] == '\t')
        {
            if (m_aFields.empty())
                throw SyntaxError(strWhat, strLine);
            std::string& strValue = m_aFields.back().second;
            size_t nStart = strLine.find_first_not_of(" \t");
            strValue += (strValue.empty() ? "" : "\n") + strLine.substr(nStart);
            continue;
        }
        size_t nColon = strLine.find(':');
        if (nColon == std::string::npos || strLine.find(' ') < nColon)
            throw SyntaxError(strWhat, strLine);
        m_aFields.push_back({strLine.substr(0, nColon), Trim(strLine.substr(nColon + 1))});
    }
}

std::string CForm::Get(const std::string& strName) const
{
    for (const auto& tField : m_aFields)
    {
        if (ToLower(tField.first) == ToLower(strName))
            return tField.second;
    }
    return "";
}

bool CForm::Has(const std::string& strName) const
{
    for (const auto& tField : m_aFields)
    {
        if (ToLower(tField.first) == ToLower(strName))
            return true;
    }
    return false;
}

std::vector<std::string> CForm::Lines(const std::string& strName) const
{
    std::vector<std::string> astrOut;
    for (const std::string& strLine : SplitLines(Get(strName)))
    {
        if (!Trim(strLine).empty())
            astrOut.push_back(Trim(strLine));
    }
    return astrOut;
}

std::string CForm::Description() const
{
    std::string strDescription = Get("Description");
    return strDescription.empty() ? strDescription : strDescription + "\n";
}

std::string BranchFormText(const TBranchRec& tBranch, bool bExisting)
{
    std::string strText = "# A Perforce Branch Specification.\n"
                          "#\n"
                          "#  Branch:      The branch name.\n"
                          "#  Update:      The date this specification was last modified.\n"
                          "#  Access:      The date of the last 'integrate' using this branch.\n"
                          "#  Owner:       The user who created this branch.\n"
                          "#  Description: A short description of the branch (optional).\n"
                          "#  Options:     Branch update options: [un]locked to allow owner-only edits.\n"
                          "#  View:        Lines to map source depot files to target depot files.\n"
                          "#\n"
                          "# Use 'p4 help branch' to see more about branch views.\n\n";
    return strText + ViewSpecFields("Branch", tBranch, bExisting);
}

std::string LabelFormText(const TLabelRec& tLabel, bool bExisting)
{
    std::string strText = "# A Perforce Label Specification.\n"
                          "#\n"
                          "#  Label:       The label name.\n"
                          "#  Update:      The date this specification was last modified.\n"
                          "#  Access:      The date of the last 'labelsync' or use of '@label' on this label.\n"
                          "#  Owner:       The user who created this label.\n"
                          "#  Description: A short description of the label (optional).\n"
                          "#  Options:     Label update options: [un]locked, [no]autoreload.\n"
                          "#  View:        Lines to select depot files for the label.\n"
                          "#\n"
                          "# Use 'p4 help label' to see more about label views.\n\n";
    return strText + ViewSpecFields("Label", tLabel, bExisting);
}

std::string ClientFormText(const TClientRec& tClient, bool bExisting)
{
    std::string strText = "# A Perforce Client Specification.\n"
                          "#\n"
                          "#  Client:      The client name.\n"
                          "#  Update:      The date this specification was last modified.\n"
                          "#  Access:      The date this client was last used in any way.\n"
                          "#  Owner:       The Perforce user name of the user who owns the client\n"
                          "#               workspace. The default is the user who created the\n"
                          "#               client workspace.\n"
                          "#  Host:        If set, restricts access to the named host.\n"
                          "#  Description: A short description of the client (optional).\n"
                          "#  Root:        The base directory of the client workspace.\n"
                          "#  Options:     Client options:\n"
                          "#                      [no]allwrite [no]clobber [no]compress\n"
                          "#                      [un]locked [no]modtime [no]rmdir\n"
                          "#  SubmitOptions:\n"
                          "#                      submitunchanged/submitunchanged+reopen\n"
                          "#                      revertunchanged/revertunchanged+reopen\n"
                          "#                      leaveunchanged/leaveunchanged+reopen\n"
                          "#  LineEnd:     Text file line endings on client: local/unix/mac/win/share.\n"
                          "#  View:        Lines to map depot files into the client workspace.\n"
                          "#\n"
                          "# Use 'p4 help client' to see more about client views and options.\n\n";
    strText += "Client:\t" + tClient.strName + "\n\n";
    if (bExisting)
        strText += FormDates(tClient.nUpdated, tClient.nAccessed);
    strText += "Owner:\t" + tClient.strOwner + "\n\n";
    strText += "Host:\t" + tClient.strHost + "\n\n";
    strText += "Description:\n" + Indented(tClient.strDescription) + "\n";
    strText += "Root:\t" + tClient.strRoot + "\n\n";
    strText += "Options:\t" + tClient.strOptions + "\n\n";
    strText += "SubmitOptions:\t" + tClient.strSubmitOptions + "\n\n";
    strText += "LineEnd:\t" + tClient.strLineEnd + "\n\n";
    return strText + FormView(tClient.astrView);
}

std::string NormalizeClientOptions(const std::string& strText)
{
    std::vector<std::string> astrChosen;
    for (const auto& apszPair : s_apszOptionPairs)
        astrChosen.push_back(apszPair[1]);
    for (const std::string& strWord : SplitWords(strText))
    {
        // "crlf"/"nocrlf" is an old option that the server still accepts.
        bool bKnown = strWord == "crlf" || strWord == "nocrlf";
        for (size_t i = 0; i < s_nOptionPairs; ++i)
        {
            if (strWord == s_apszOptionPairs[i][0] || strWord == s_apszOptionPairs[i][1])
            {
                astrChosen[i] = strWord;
                bKnown = true;
            }
        }
        if (!bKnown)
            throw EP4Error("Error in client specification.\nInvalid option '" + strWord + "' in Options option field.");
    }
    std::string strOut;
    for (size_t i = 0; i < astrChosen.size(); ++i)
        strOut += (i ? " " : "") + astrChosen[i];
    return strOut;
}

} // namespace P4SIM
} // namespace ORVANE
