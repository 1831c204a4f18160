// The history format of `admin load` and `admin generate --json`.
#include "History.h"

#include "Digest.h"
#include "Text.h"

#include <cctype>
#include <set>
#include <stdexcept>

namespace ORVANE {
namespace P4SIM {

using nlohmann::json;

namespace {

std::string Str(const json& jObject, const char* pszKey, const std::string& strDefault = "")
{
    auto it = jObject.find(pszKey);
    if (it == jObject.end() || it->is_null())
        return strDefault;
    if (!it->is_string())
        throw std::runtime_error(std::string("'") + pszKey + "' must be a string");
    return it->get<std::string>();
}

long long Int(const json& jObject, const char* pszKey, long long nDefault = 0)
{
    auto it = jObject.find(pszKey);
    if (it == jObject.end() || it->is_null())
        return nDefault;
    if (!it->is_number_integer())
        throw std::runtime_error(std::string("'") + pszKey + "' must be an integer");
    return it->get<long long>();
}

std::vector<std::string> Lines(const json& jObject, const char* pszKey)
{
    std::vector<std::string> astrOut;
    auto it = jObject.find(pszKey);
    if (it == jObject.end() || it->is_null())
        return astrOut;
    if (it->is_string())
        return SplitLines(it->get<std::string>());
    if (!it->is_array())
        throw std::runtime_error(std::string("'") + pszKey + "' must be a list of lines");
    for (const json& jLine : *it)
        astrOut.push_back(jLine.get<std::string>());
    return astrOut;
}

// Bytes that look random, the same for the same size and seed: a large file
// of a history without its bytes in the JSON.
std::string GeneratedContent(const json& jGenerated)
{
    if (!jGenerated.is_object())
        throw std::runtime_error("'generated' must be an object with 'size' and 'seed'");
    const long long nSize = Int(jGenerated, "size", -1);
    if (nSize < 0)
        throw std::runtime_error("'generated' needs a 'size' of 0 or more bytes");
    unsigned long long nState = static_cast<unsigned long long>(Int(jGenerated, "seed", 0));
    std::string str(static_cast<size_t>(nSize), '\0');
    for (size_t i = 0; i < str.size(); i += 8)
    {
        // splitmix64
        unsigned long long n = (nState += 0x9e3779b97f4a7c15ULL);
        n = (n ^ (n >> 30)) * 0xbf58476d1ce4e5b9ULL;
        n = (n ^ (n >> 27)) * 0x94d049bb133111ebULL;
        n ^= n >> 31;
        for (size_t j = 0; j < 8 && i + j < str.size(); ++j, n >>= 8)
            str[i + j] = static_cast<char>(n & 0xff);
    }
    return str;
}

// A server keeps form and change descriptions with a final line end.
std::string WithNewline(const std::string& str)
{
    if (str.empty() || str.back() == '\n')
        return str;
    return str + "\n";
}

bool IsBinaryType(const std::string& strType)
{
    return StartsWith(strType, "binary") || StartsWith(strType, "ubinary") || StartsWith(strType, "apple") ||
           StartsWith(strType, "resource");
}

// A text given as "KEYEscaped" ("pathEscaped", "descriptionEscaped"...):
// \xNN is the byte NN (two hexadecimal digits), \\ a backslash, anything
// else itself. It carries bytes that are not UTF-8, which a JSON string
// cannot hold.
std::string DecodeEscaped(const std::string& str)
{
    std::string strOut;
    for (size_t i = 0; i < str.size(); ++i)
    {
        if (str[i] != '\\')
        {
            strOut += str[i];
            continue;
        }
        if (i + 1 < str.size() && str[i + 1] == '\\')
        {
            strOut += '\\';
            ++i;
            continue;
        }
        const std::string strHex = i + 4 <= str.size() && str[i + 1] == 'x' ? str.substr(i + 2, 2) : std::string();
        if (strHex.size() != 2 || !std::isxdigit(static_cast<unsigned char>(strHex[0])) ||
            !std::isxdigit(static_cast<unsigned char>(strHex[1])))
            throw std::runtime_error("bad escape in '" + str + "': a backslash takes \\xNN or \\\\");
        strOut += static_cast<char>(std::stoi(strHex, nullptr, 16));
        i += 3;
    }
    return strOut;
}

// The escaped form of a text that is not UTF-8: its bytes from 0x80 up as
// \xNN, backslashes doubled.
std::string EncodeEscaped(const std::string& str)
{
    static const char s_achHex[] = "0123456789abcdef";
    std::string strOut;
    for (unsigned char c : str)
    {
        if (c == '\\')
            strOut += "\\\\";
        else if (c >= 0x80)
            strOut += std::string("\\x") + s_achHex[c >> 4] + s_achHex[c & 15];
        else
            strOut += char(c);
    }
    return strOut;
}

// A path or text of the history: "KEY" as it is, or "KEYEscaped" in the
// form above.
std::string TextValue(const json& jObject, const char* pszKey, const std::string& strDefault = "")
{
    const std::string strEscapedKey = std::string(pszKey) + "Escaped";
    if (!jObject.contains(strEscapedKey))
        return Str(jObject, pszKey, strDefault);
    if (jObject.contains(pszKey))
        throw std::runtime_error(std::string("both '") + pszKey + "' and '" + strEscapedKey + "'");
    return DecodeEscaped(Str(jObject, strEscapedKey.c_str()));
}

// Puts a path or text into the history under "KEY", or "KEYEscaped" when it
// is not UTF-8.
void SetText(json& jObject, const char* pszKey, const std::string& strText)
{
    if (IsUtf8(strText))
        jObject[pszKey] = strText;
    else
        jObject[std::string(pszKey) + "Escaped"] = EncodeEscaped(strText);
}

bool Flag(const json& jObject, const char* pszKey)
{
    auto it = jObject.find(pszKey);
    if (it == jObject.end() || it->is_null())
        return false;
    if (!it->is_boolean())
        throw std::runtime_error(std::string("'") + pszKey + "' must be true or false");
    return it->get<bool>();
}

void CheckDepotPath(const std::string& strPath)
{
    if (!StartsWith(strPath, "//") || strPath.size() < 4 || EndsWith(strPath, "/") ||
        strPath.find("...") != std::string::npos)
        throw std::runtime_error("bad depot file path '" + strPath + "'");
}

TUserRec ParseUser(const json& jUser)
{
    TUserRec tUser;
    tUser.strName = TextValue(jUser, "name");
    if (tUser.strName.empty())
        throw std::runtime_error("a user without a name");
    tUser.strEmail = TextValue(jUser, "email", tUser.strName + "@p4sim");
    tUser.strFullName = TextValue(jUser, "fullName", tUser.strName);
    tUser.nUpdated = tUser.nAccessed = Int(jUser, "time", 0);
    return tUser;
}

TBranchRec ParseBranch(const json& jBranch)
{
    TBranchRec tBranch;
    tBranch.strName = Str(jBranch, "name");
    if (tBranch.strName.empty())
        throw std::runtime_error("a branch spec without a name");
    tBranch.strOwner = Str(jBranch, "owner", "p4sim");
    tBranch.strDescription = WithNewline(TextValue(jBranch, "description", "Created by " + tBranch.strOwner + "."));
    tBranch.strOptions = Str(jBranch, "options", "unlocked");
    tBranch.astrView = Lines(jBranch, "view");
    tBranch.nUpdated = tBranch.nAccessed = Int(jBranch, "time", 0);
    return tBranch;
}

TClientRec ParseClient(const json& jClient)
{
    TClientRec tClient;
    tClient.strName = Str(jClient, "name");
    if (tClient.strName.empty())
        throw std::runtime_error("a client without a name");
    tClient.strOwner = Str(jClient, "owner", "p4sim");
    tClient.strHost = Str(jClient, "host");
    tClient.strDescription = WithNewline(TextValue(jClient, "description", "Created by " + tClient.strOwner + "."));
    tClient.strRoot = Str(jClient, "root");
    tClient.strOptions = Str(jClient, "options", "noallwrite noclobber nocompress unlocked nomodtime normdir");
    tClient.strSubmitOptions = Str(jClient, "submitOptions", "submitunchanged");
    tClient.strLineEnd = Str(jClient, "lineEnd", "local");
    tClient.astrView = Lines(jClient, "view");
    tClient.nUpdated = tClient.nAccessed = Int(jClient, "time", 0);
    return tClient;
}

TLabelSpec ParseLabel(const json& jLabel)
{
    TLabelSpec tSpec;
    TLabelRec& tLabel = tSpec.tLabel;
    tLabel.strName = Str(jLabel, "name");
    if (tLabel.strName.empty())
        throw std::runtime_error("a label without a name");
    tLabel.strOwner = Str(jLabel, "owner", "p4sim");
    tLabel.strDescription = WithNewline(TextValue(jLabel, "description", "Created by " + tLabel.strOwner + "."));
    tLabel.strOptions = Str(jLabel, "options", "unlocked noautoreload");
    tLabel.astrView = Lines(jLabel, "view");
    if (tLabel.astrView.empty())
        tLabel.astrView = {"//depot/..."};
    tLabel.nUpdated = tLabel.nAccessed = Int(jLabel, "time", 0);
    tSpec.astrTags = Lines(jLabel, "files");
    return tSpec;
}

TFileAction ParseFileAction(const json& jFile)
{
    static const std::set<std::string> s_setActions = {"add",       "edit",     "delete",     "branch",
                                                       "integrate", "move/add", "move/delete"};
    TFileAction tAction;
    tAction.strPath = TextValue(jFile, "path");
    CheckDepotPath(tAction.strPath);
    tAction.strAction = Str(jFile, "action", "edit");
    if (!s_setActions.count(tAction.strAction))
        throw std::runtime_error("unknown action '" + tAction.strAction + "'");
    tAction.strType = Str(jFile, "type");
    if (jFile.contains("content"))
        tAction.pContent = std::make_shared<const std::string>(Str(jFile, "content"));
    else if (jFile.contains("base64"))
        tAction.pContent = std::make_shared<const std::string>(Base64Decode(Str(jFile, "base64")));
    else if (jFile.contains("generated"))
        tAction.pContent = std::make_shared<const std::string>(GeneratedContent(jFile["generated"]));
    tAction.strFrom = TextValue(jFile, "from");
    if (!tAction.strFrom.empty())
        CheckDepotPath(tAction.strFrom);
    tAction.nFromRev = Int(jFile, "fromRev", 0);
    tAction.strHow = Str(jFile, "how");
    tAction.nFromRevStart = Int(jFile, "fromRevStart", 0);
    if ((!tAction.strHow.empty() || tAction.nFromRevStart) && tAction.strFrom.empty())
        throw std::runtime_error("'how' and 'fromRevStart' of " + tAction.strPath + " need 'from'");
    if (tAction.nFromRevStart < 0 || (tAction.nFromRev && tAction.nFromRevStart > tAction.nFromRev))
        throw std::runtime_error("'fromRevStart' of " + tAction.strPath + " must lie between 1 and 'fromRev'");
    tAction.bPurged = Flag(jFile, "purged");
    tAction.bArchived = Flag(jFile, "archived");
    if (tAction.bPurged && tAction.bArchived)
        throw std::runtime_error("both 'purged' and 'archived' for " + tAction.strPath);
    return tAction;
}

// {"submit": N, "time": T, "description": ..., "files": [{"path": ...,
// "content": ...}]}: the submission of pending change N.
TChangeSpec ParseSubmit(const json& jSubmit)
{
    TChangeSpec tSubmit;
    tSubmit.nSubmit = Int(jSubmit, "submit", 0);
    if (tSubmit.nSubmit <= 0)
        throw std::runtime_error("'submit' must name a change");
    tSubmit.nTime = Int(jSubmit, "time", 0);
    tSubmit.strDescription = WithNewline(TextValue(jSubmit, "description"));
    for (const json& jFile : jSubmit.value("files", json::array()))
        tSubmit.atFiles.push_back(ParseFileAction(jFile));
    return tSubmit;
}

TChangeSpec ParseChange(const json& jChange)
{
    if (jChange.contains("submit"))
        return ParseSubmit(jChange);
    TChangeSpec tChange;
    tChange.strStatus = Str(jChange, "status", "submitted");
    if (tChange.strStatus != "submitted" && tChange.strStatus != "pending" && tChange.strStatus != "shelved")
        throw std::runtime_error("unknown status '" + tChange.strStatus + "'");
    tChange.nChange = Int(jChange, "change", 0);
    tChange.strUser = TextValue(jChange, "user", "p4sim");
    tChange.strClient = TextValue(jChange, "client", tChange.strUser + "-ws");
    tChange.nTime = Int(jChange, "time", 0);
    tChange.strDescription = WithNewline(TextValue(jChange, "description", "change"));
    for (const json& jFile : jChange.value("files", json::array()))
        tChange.atFiles.push_back(ParseFileAction(jFile));
    return tChange;
}

json FileActionToJson(const TFileAction& tAction)
{
    json jFile = json::object();
    SetText(jFile, "path", tAction.strPath);
    jFile["action"] = tAction.strAction;
    if (!tAction.strType.empty())
        jFile["type"] = tAction.strType;
    if (tAction.pContent)
    {
        if (IsBinaryType(tAction.strType) || !IsUtf8(*tAction.pContent))
            jFile["base64"] = Base64Encode(*tAction.pContent);
        else
            jFile["content"] = *tAction.pContent;
    }
    if (!tAction.strFrom.empty())
        SetText(jFile, "from", tAction.strFrom);
    if (tAction.nFromRev)
        jFile["fromRev"] = tAction.nFromRev;
    if (!tAction.strHow.empty())
        jFile["how"] = tAction.strHow;
    if (tAction.nFromRevStart)
        jFile["fromRevStart"] = tAction.nFromRevStart;
    if (tAction.bPurged)
        jFile["purged"] = true;
    if (tAction.bArchived)
        jFile["archived"] = true;
    return jFile;
}

json ChangeToJson(const TChangeSpec& tChange)
{
    json jFiles = json::array();
    for (const TFileAction& tAction : tChange.atFiles)
        jFiles.push_back(FileActionToJson(tAction));
    if (tChange.nSubmit)
    {
        json jSubmit = {{"submit", tChange.nSubmit}, {"time", tChange.nTime}};
        if (!tChange.strDescription.empty())
            SetText(jSubmit, "description", tChange.strDescription);
        if (!tChange.atFiles.empty())
            jSubmit["files"] = jFiles;
        return jSubmit;
    }
    json jChange = json::object();
    SetText(jChange, "user", tChange.strUser);
    SetText(jChange, "client", tChange.strClient);
    jChange["time"] = tChange.nTime;
    SetText(jChange, "description", tChange.strDescription);
    if (tChange.nChange)
        jChange["change"] = tChange.nChange;
    if (tChange.strStatus != "submitted")
        jChange["status"] = tChange.strStatus;
    jChange["files"] = jFiles;
    return jChange;
}

} // namespace

THistory ParseHistory(const json& jHistory)
{
    if (!jHistory.is_object())
        throw std::runtime_error("the history must be a JSON object");
    THistory tHistory;
    for (const json& jUser : jHistory.value("users", json::array()))
        tHistory.atUsers.push_back(ParseUser(jUser));
    for (const json& jBranch : jHistory.value("branches", json::array()))
        tHistory.atBranches.push_back(ParseBranch(jBranch));
    for (const json& jClient : jHistory.value("clients", json::array()))
        tHistory.atClients.push_back(ParseClient(jClient));
    for (const json& jChange : jHistory.value("changes", json::array()))
        tHistory.atChanges.push_back(ParseChange(jChange));
    for (const json& jLabel : jHistory.value("labels", json::array()))
        tHistory.atLabels.push_back(ParseLabel(jLabel));
    tHistory.astrDeletedUsers = Lines(jHistory, "deletedUsers");
    if (jHistory.contains("limits"))
    {
        const json& jLimits = jHistory["limits"];
        if (!jLimits.is_object())
            throw std::runtime_error("'limits' must be an object");
        tHistory.nMaxResults = Int(jLimits, "maxResults", -1);
        tHistory.nMaxScanRows = Int(jLimits, "maxScanRows", -1);
        if (tHistory.nMaxResults < -1 || tHistory.nMaxScanRows < -1)
            throw std::runtime_error("a limit must be 0 (unlimited) or more");
    }
    if (jHistory.contains("unicode"))
        tHistory.nUnicode = Flag(jHistory, "unicode") ? 1 : 0;
    tHistory.strCaseHandling = Str(jHistory, "caseHandling");
    if (!tHistory.strCaseHandling.empty() && tHistory.strCaseHandling != "sensitive" &&
        tHistory.strCaseHandling != "insensitive")
        throw std::runtime_error("'caseHandling' must be \"sensitive\" or \"insensitive\"");
    return tHistory;
}

json HistoryToJson(const THistory& tHistory)
{
    json jHistory = json::object();
    if (tHistory.nUnicode >= 0)
        jHistory["unicode"] = tHistory.nUnicode == 1;
    if (!tHistory.strCaseHandling.empty())
        jHistory["caseHandling"] = tHistory.strCaseHandling;
    json jUsers = json::array();
    for (const TUserRec& tUser : tHistory.atUsers)
    {
        json jUser = json::object();
        SetText(jUser, "name", tUser.strName);
        SetText(jUser, "email", tUser.strEmail);
        SetText(jUser, "fullName", tUser.strFullName);
        jUser["time"] = tUser.nUpdated;
        jUsers.push_back(jUser);
    }
    jHistory["users"] = jUsers;
    json jBranches = json::array();
    for (const TBranchRec& tBranch : tHistory.atBranches)
    {
        json jBranch = {{"name", tBranch.strName}, {"owner", tBranch.strOwner}};
        SetText(jBranch, "description", tBranch.strDescription);
        jBranch["options"] = tBranch.strOptions;
        jBranch["view"] = tBranch.astrView;
        jBranch["time"] = tBranch.nUpdated;
        jBranches.push_back(jBranch);
    }
    jHistory["branches"] = jBranches;
    json jChanges = json::array();
    for (const TChangeSpec& tChange : tHistory.atChanges)
        jChanges.push_back(ChangeToJson(tChange));
    jHistory["changes"] = jChanges;
    if (!tHistory.astrDeletedUsers.empty())
        jHistory["deletedUsers"] = tHistory.astrDeletedUsers;
    if (tHistory.nMaxResults >= 0 || tHistory.nMaxScanRows >= 0)
    {
        json jLimits = json::object();
        if (tHistory.nMaxResults >= 0)
            jLimits["maxResults"] = tHistory.nMaxResults;
        if (tHistory.nMaxScanRows >= 0)
            jLimits["maxScanRows"] = tHistory.nMaxScanRows;
        jHistory["limits"] = jLimits;
    }
    if (tHistory.atLabels.empty())
        return jHistory;
    json jLabels = json::array();
    for (const TLabelSpec& tSpec : tHistory.atLabels)
    {
        const TLabelRec& tLabel = tSpec.tLabel;
        json jLabel = {{"name", tLabel.strName}, {"owner", tLabel.strOwner}};
        SetText(jLabel, "description", tLabel.strDescription);
        jLabel["options"] = tLabel.strOptions;
        jLabel["view"] = tLabel.astrView;
        jLabel["time"] = tLabel.nUpdated;
        jLabel["files"] = tSpec.astrTags;
        jLabels.push_back(jLabel);
    }
    jHistory["labels"] = jLabels;
    return jHistory;
}

} // namespace P4SIM
} // namespace ORVANE
