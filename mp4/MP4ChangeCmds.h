// The change list commands: the submitted changelists under a depot path,
// and one changelist's description and files.
#pragma once

#include "host/FilePath.h"
#include "host/String.h"
#include "host/Timestamp.h"
#include "mp4/MP4CommandBase.h"

namespace ORVANE {
namespace MP4 {

// One changelist of a listing.
struct TChange
{
    unsigned int nChange = 0; // 0: no number was read
    VCM::CString strUser;     // who submitted it
    VCM::CString strClient;   // the workspace it was submitted from
    VCM::CTimestamp cTime;    // when
};

// What a change did to one file.
enum TChangeItemAction
{
    eActionAdd = 0,
    eActionEdit = 1,
    eActionBranch = 2,
    eActionIntegrate = 3,
    eActionDelete = 4
};

// One file of a changelist.
struct TChangeItem
{
    VCM::CFilePath cPath;                  // depot path, escapes decoded
    unsigned int nRev = 0;                 // revision made by the change; never 0 when returned
    TChangeItemAction eAction = eActionAdd; // what the change did
};

// "p4 -G changes PATH/...": the changelists under a depot path.
class CChangesCmd : public CCommandBase
{
public:
    bool EnumChangesForPath(const VCM::CFilePath& cPath);
    // The next changelist; records without a usable number are skipped.
    bool GetNextChange(TChange& cChange);
};

// "p4 -G describe N": one changelist's description and file entries.
class CDescribeCmd : public CCommandBase
{
public:
    // Runs the describe command and reads the description; true only when
    // both worked.
    bool EnumItemsForChange(unsigned int nChange, VCM::CString& strDescription);
    // The next file entry of the change; false at the end of the list or at
    // a malformed entry (the two are not told apart).
    bool GetNextItem(TChangeItem& cItem);
    // Reads pairs up to the first "desc" key and takes its value.
    bool GetDescription(VCM::CString& strDescription);

    // "add", "edit", "branch", "integrate", "delete", in any case.
    bool GetActionFromString(const VCM::CString& strAction, TChangeItemAction& eAction);
    // Decodes the %XX escapes of every item of a depot path. False at an
    // escape that is not hexadecimal (that item and the rest stay as they
    // are). An item that ends in '%' or in '%' and one character is examined
    // again and again: the routine never returns for such a name.
    bool ReplaceHexChars(VCM::CFilePath& cPath);
    // The value of one hexadecimal digit, -1 for any other character.
    int ConvertHexChar(wchar_t c);
};

} // namespace MP4
} // namespace ORVANE
