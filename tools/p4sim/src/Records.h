// The records of the server state: users, changelists, file revisions,
// branch, label and client specifications, have lists and sync marks.
#pragma once

#include <string>
#include <vector>

namespace ORVANE {
namespace P4SIM {

struct TUserRec
{
    std::string strName, strEmail, strFullName;
    long long nUpdated = 0, nAccessed = 0;
};

// A changelist. strStatus is "submitted", "pending", or "shelved" (a
// pending change with shelved files, which the server reports as pending).
struct TChangeRec
{
    long long nChange = 0;
    std::string strUser, strClient;
    long long nTime = 0;
    std::string strDescription, strStatus, strPath;

    bool Submitted() const { return strStatus == "submitted"; }
    bool Shelved() const { return strStatus == "shelved"; }
};

// A file opened in a pending (or shelved) change: the action, the type,
// the head revision it was opened against (0: none), and its content if
// any (the shelved content of a shelved change; for a pending one, what
// its submission will store). Branches, integrations and moves keep their
// source.
struct TOpenedRec
{
    long long nChange = 0;
    std::string strDepotFile, strAction, strType;
    long long nRev = 0;
    std::string strDigest; // empty: no content
    long long nSize = 0;
    std::string strFromFile;
    long long nFromRev = 0;
};

struct TRevRec
{
    std::string strDepotFile;
    long long nRev = 0, nChange = 0;
    std::string strAction, strType, strDigest;
    long long nSize = 0, nTime = 0, nModTime = 0;

    bool Deleted() const { return strAction == "delete" || strAction == "move/delete"; }
    // A revision whose content is gone (p4 archive -p, a +S type's older
    // revisions) or in an archive depot (p4 archive): the file exists, but
    // commands that need the content skip it.
    bool Purged() const { return strAction == "purge" || strAction == "archive"; }
    bool HasContent() const { return !Deleted() && !Purged(); }
};

// An integration record, as the target's side keeps it: the target's
// revision, the source's revisions (nFromStart exclusive, 0 for "#none",
// up to nFromEnd), how it was resolved ("branch from", "copy from",
// "merge from", "edit from", "ignored", "delete from", "moved from") and the
// change that submitted it. The source's side ("branch into", ...) is the
// same record read the other way.
struct TIntegRec
{
    std::string strToFile;
    long long nToRev = 0;
    std::string strFromFile;
    long long nFromStart = 0, nFromEnd = 0;
    std::string strHow;
    long long nChange = 0;
};

// What branch and label specifications have alike.
struct TViewSpecRec
{
    std::string strName, strOwner, strDescription, strOptions;
    std::vector<std::string> astrView;
    long long nUpdated = 0, nAccessed = 0;
};

struct TBranchRec : TViewSpecRec
{
};

// A static label: its specification; the revisions it tags are kept apart.
struct TLabelRec : TViewSpecRec
{
};

struct TClientRec
{
    std::string strName, strOwner, strHost, strDescription, strRoot, strOptions, strSubmitOptions, strLineEnd;
    std::vector<std::string> astrView;
    long long nUpdated = 0, nAccessed = 0;
};

struct THaveRec
{
    std::string strClientFile, strDepotFile;
    long long nRev = 0;
};

// What a complete sync of one file argument left behind: every file of the
// client that the pattern names is in the have list at its revision as of
// nChange (and files deleted or not yet added then are not), nHaveCount
// files in all. A later sync of the same pattern needs to look only at the
// files changed between the two changes. Any other change of those have
// entries, and any change of the client's view, removes the mark.
struct TSyncMark
{
    std::string strPattern;
    long long nChange = 0;
    long long nHaveCount = 0;
};

} // namespace P4SIM
} // namespace ORVANE
