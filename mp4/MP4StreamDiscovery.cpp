// Stream discovery: every branch spec that maps one depot path onto another
// makes its destination a stream branched from the stream at its source.
#include <wx/filefn.h>
#include <wx/tokenzr.h>

#include "host/StreamRecord.h"
#include "mp4/MP4BranchCmds.h"
#include "mp4/MP4Provider.h"

namespace ORVANE {
namespace MP4 {

bool CProvider::SearchForStreams()
{
    CCommandBase::SetP4Executable(GetStringProperty(L"P4Path"));

    VCM::CFilePath cRootPath;
    if (!cRootPath.Parse(GetStringProperty(L"RootPath"), -1, false))
        return false;
    if (cRootPath.GetItemCount() > 0 &&
        VCM::CString(cRootPath.GetItemText(cRootPath.GetItemCount() - 1, nullptr)) == L"...")
        cRootPath.RemoveLastItem();

    // Wildcard patterns (whatever the message calls them), compared in
    // lower case.
    m_astrIgnoredPatterns.RemoveAll(true);
    wxStringTokenizer cTokens(GetStringProperty(L"IgnoredBranches"), L";");
    while (cTokens.HasMoreTokens())
    {
        const VCM::CString strToken = cTokens.GetNextToken();
        WriteLog(L"-- Added branch ignore regex of '%s'\n", strToken.wc_str());
        m_astrIgnoredPatterns.Add(VCM::CString(strToken.Lower()));
    }

    CBranchesCmd cBranches;
    if (!cBranches.EnumBranchesForPath(cRootPath))
        return false;

    bool bProposed = false;
    TBranch tBranch;
    while (cBranches.GetNextBranch(tBranch))
    {
        const wxString strLowerName = tBranch.strName.Lower();
        int nIgnoredBy = -1;
        for (int i = 0; i < m_astrIgnoredPatterns.GetCount() && nIgnoredBy < 0; ++i)
        {
            const VCM::CString& strPattern = m_astrIgnoredPatterns[i];
            const bool bMatch = wxIsWild(strPattern) ? wxMatchWild(strPattern, strLowerName, true)
                                                     : strPattern == VCM::CString(strLowerName);
            if (bMatch)
                nIgnoredBy = i;
        }
        if (nIgnoredBy >= 0)
        {
            WriteLog(L"Ignored branch spec '%s' due to Ignored Branches setting '%s'\n", tBranch.strName.wc_str(),
                     m_astrIgnoredPatterns[nIgnoredBy].wc_str());
            continue;
        }
        if (tBranch.aSourcePaths.GetCount() == 0)
            continue;

        // Only the first line of a branch spec's view counts.
        VCM::CFilePath cSrcPath(tBranch.aSourcePaths[0]);
        VCM::CFilePath cDstPath(tBranch.aTargetPaths[0]);
        WriteLog(L"Proposing stream '%s' (source='%s',dest='%s')\n", tBranch.strName.wc_str(),
                 cSrcPath.GeneratePath().wc_str(), cDstPath.GeneratePath().wc_str());
        ProposeStream(tBranch.strName, cSrcPath, cDstPath);
        bProposed = true;
    }

    // Without any branch spec the root path itself is the one stream.
    if (!bProposed)
    {
        VCM::CString strName;
        if (cRootPath.GetItemCount() > 0)
            strName = cRootPath.GetItemText(cRootPath.GetItemCount() - 1, nullptr);
        VCM::CFilePath cNoSource;
        ProposeStream(strName, cNoSource, cRootPath);
    }
    return true;
}

unsigned int CProvider::ProposeStream(const VCM::CString& strName, VCM::CFilePath& cSrcPath,
                                      VCM::CFilePath& cDstPath)
{
    if (cDstPath.GetItemCount() == 0)
        return 0;
    // The source's stream may be made first, so it has the smaller id.
    unsigned int nParentID = 0;
    if (!ProposeStreamSrc(cSrcPath, nParentID))
        return 0;
    unsigned int nExistingID = 0;
    if (!ProposeStreamDst(strName, nParentID, cSrcPath, cDstPath, nExistingID))
        return 0;
    if (nExistingID != 0)
        return nExistingID;

    TStreamInfo tStream;
    tStream.nID = m_nNextStreamID++;
    tStream.nParentID = nParentID;
    tStream.cDstPath = cDstPath;
    tStream.cSrcPath = cSrcPath;
    tStream.strName = strName.empty() ? cDstPath.GeneratePath(L'/', true) : strName;
    VDB::TStreamRecord::MakeValidName(tStream.strName);
    m_atStreams.Add(tStream);
    return tStream.nID;
}

bool CProvider::ProposeStreamSrc(VCM::CFilePath& cSrcPath, unsigned int& nParentID)
{
    if (cSrcPath.GetItemCount() == 0)
    {
        nParentID = 0; // a root stream
        return true;
    }
    bool bFound = false;
    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        const TStreamInfo& tStream = m_atStreams[i];
        VCM::CFilePath cRemainder;
        if (cSrcPath.IsSupersetOf(tStream.cDstPath, &cRemainder, m_bCaseInsensitive))
        {
            if (cRemainder.GetItemCount() != 0)
                return false; // the source is a folder inside a stream
            nParentID = tStream.nID;
            cSrcPath = tStream.cDstPath; // the stored spelling wins
            bFound = true;
            break;
        }
        if (tStream.cDstPath.IsSupersetOf(cSrcPath, nullptr, m_bCaseInsensitive))
            return false; // the source holds a stream
    }
    if (bFound)
        return true;

    // A source that is no stream yet becomes a root stream.
    VCM::CFilePath cNoSource;
    nParentID = ProposeStream(VCM::CString(), cNoSource, cSrcPath);
    return nParentID != 0;
}

bool CProvider::ProposeStreamDst(const VCM::CString& strName, unsigned int nParentID, VCM::CFilePath& cSrcPath,
                                 VCM::CFilePath& cDstPath, unsigned int& nExistingID)
{
    int nFound = -1;
    VCM::CFilePath cRemainder;
    for (int i = 0; i < m_atStreams.GetCount(); ++i)
    {
        const TStreamInfo& tStream = m_atStreams[i];
        if (cDstPath.IsSupersetOf(tStream.cDstPath, &cRemainder, m_bCaseInsensitive))
        {
            nFound = i;
            break;
        }
        if (tStream.cDstPath.IsSupersetOf(cDstPath, nullptr, m_bCaseInsensitive))
            return false; // the destination would hold a stream
    }
    if (nFound < 0)
        return true; // a new stream
    if (cRemainder.GetItemCount() != 0)
        return false; // the destination is a folder inside a stream

    TStreamInfo& tStream = m_atStreams.ElementAt(nFound);
    if (tStream.cSrcPath.GetItemCount() != 0)
        return false; // claimed by an earlier branch spec already

    // A root made for an earlier branch spec's source is taken over. Its
    // name is taken as given, without MakeValidName, as it always was.
    nExistingID = tStream.nID;
    cDstPath = tStream.cDstPath;
    tStream.nParentID = nParentID;
    tStream.strName = strName;
    tStream.cSrcPath = cSrcPath;
    return true;
}

} // namespace MP4
} // namespace ORVANE
