// Every SQL statement of the store, by name: prepared once per process on
// first use, and listed so that a test can check that each one is answered
// through an index.
#pragma once

namespace ORVANE {
namespace P4SIM {

enum TQuery
{
    eQueryMetaGet,
    eQueryMetaPut,
    eQueryUsers,
    eQueryUser,
    eQueryUserPut,
    eQueryUserDelete,
    eQueryMaxChange,
    eQueryChange,
    eQueryChangePut,
    eQueryChangesNewestFirst,
    eQueryChangesOldestFirst,
    eQueryRevsByChangeNewestFirst,
    eQueryRevsByChangeOldestFirst,
    eQueryFilesChangedBetween,
    eQueryRevPut,
    eQueryRevsOfChange,
    eQueryHeadsUnder,
    eQueryRev,
    eQueryHeadRev,
    eQueryRevsUnderBetween,
    eQueryCountRevsUnder,
    eQueryContentPut,
    eQueryContent,
    eQueryBranches,
    eQueryBranch,
    eQueryBranchPut,
    eQueryBranchDelete,
    eQueryLabels,
    eQueryLabel,
    eQueryLabelPut,
    eQueryLabelRevPut,
    eQueryLabelRevsDelete,
    eQueryLabelRevsUnder,
    eQueryClients,
    eQueryClient,
    eQueryClientPut,
    eQueryClientTouch,
    eQueryClientDelete,
    eQueryHaveUnder,
    eQueryHave,
    eQueryHavePut,
    eQueryHaveDelete,
    eQueryHaveDeleteClient,
    eQueryMarks,
    eQueryMarkPut,
    eQueryMarkDelete,
    eQueryMarksDeleteClient,
    eQueryChangeDelete,
    eQueryMaxSubmittedChange,
    eQueryOpenedPut,
    eQueryOpenedOfChange,
    eQueryOpenedUnder,
    eQueryOpenedDeleteChange,
    eQueryIntegPut,
    eQueryIntegsInto,
    eQueryIntegsFrom,
    eQueryIntegLast,
    eQueryIntegLastBack,
    eQueryRevSetAction,
    eQueryCount
};

// The statement's SQL text.
const char* QueryText(TQuery eQuery);

// The tables and indexes of a new server.
extern const char* const g_pszSchema;
// The table of sync marks, for servers made before it existed.
extern const char* const g_pszSyncMarksSchema;
// The tables of labels, for servers made before they existed.
extern const char* const g_pszLabelsSchema;
// The files opened in pending and shelved changes, for servers made before
// they existed.
extern const char* const g_pszOpenedSchema;
// The integration records, for servers made before they existed.
extern const char* const g_pszIntegsSchema;
// The tables with file paths again, empty, their paths compared without
// ASCII case (SQLite's NOCASE): for a server whose case handling is
// insensitive, made so before it has any revision.
extern const char* const g_pszCaseInsensitiveSchema;

} // namespace P4SIM
} // namespace ORVANE
