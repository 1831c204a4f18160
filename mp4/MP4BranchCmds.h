// The branch specification commands: the listing of every branch spec and
// the details (description and view) of one.
#pragma once

#include "host/Array.h"
#include "host/FilePath.h"
#include "host/String.h"
#include "mp4/MP4CommandBase.h"

namespace ORVANE {
namespace MP4 {

// One branch specification.
struct TBranch
{
    VCM::CString strName;                  // value of the key "branch"
    VCM::CString strDescription;           // as the server stores it, line ends included
    VCM::CArray<VCM::CFilePath> aSourcePaths; // left side of each kept view line, no trailing "..."
    VCM::CArray<VCM::CFilePath> aTargetPaths; // right side of the same lines, same count
};

// "p4 -G branches": every branch spec of the server, each with the view
// lines that concern one depot path.
class CBranchesCmd : public CCommandBase
{
public:
    CBranchesCmd();

    // Lists all branch specs; the path is kept for the filter of
    // GetNextBranch, it is not given to the server.
    bool EnumBranchesForPath(const VCM::CFilePath& cPath);
    // The next branch spec with at least one view line whose both sides lie
    // at or below the path; false when there is none left. The iteration
    // ends at the first listing record without a name.
    bool GetNextBranch(TBranch& cBranch);

private:
    VCM::CFilePath m_cPath;
};

// "p4 -G branch -o NAME": one branch spec's description and view.
class CBranchCmd : public CCommandBase
{
public:
    // Reads the spec named cBranch.strName into its description and appends
    // its view lines to the two path arrays; false only when the command
    // failed.
    bool GetBranchDetails(TBranch& cBranch);
};

} // namespace MP4
} // namespace ORVANE
