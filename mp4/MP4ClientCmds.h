// The client workspace commands: create a client from a specification form
// written to "p4 client -i", delete it, and sync a workspace folder.
#pragma once

#include <wx/stream.h>

#include "host/Array.h"
#include "host/FilePath.h"
#include "host/String.h"
#include "mp4/MP4CommandBase.h"

namespace ORVANE {
namespace MP4 {

// The client's LineEnd option.
enum TClientLEOption
{
    eLELocal = 0,
    eLEUnix = 1,
    eLEMac = 2,
    eLEWin = 3,
    eLEShare = 4
};

// Bits of TClient::nOptions: set gives the first word, clear the second.
enum : unsigned int
{
    eClientAllWrite = 0x01, // allwrite / noallwrite
    eClientClobber = 0x02,  // clobber / noclobber
    eClientCompress = 0x04, // compress / nocompress
    eClientCrLf = 0x08,     // crlf / nocrlf
    eClientLocked = 0x10,   // locked / unlocked
    eClientModTime = 0x20,  // modtime / nomodtime
    eClientRmDir = 0x40     // rmdir / normdir
};

// A client specification to create.
struct TClient
{
    VCM::CString strName;        // Client
    VCM::CString strOwner;       // Owner
    VCM::CString strHost;        // Host
    VCM::CString strDescription; // Description
    VCM::CFilePath cRoot;        // Root, a local folder
    // Options and LineEnd: callers always set both; the zeros are only a
    // defined starting point.
    unsigned int nOptions = 0;
    TClientLEOption eLineEnd = eLELocal;
    VCM::CArray<VCM::CFilePath> aDepotPaths;  // left side of each view line
    VCM::CArray<VCM::CFilePath> aClientPaths; // right side, entry i pairs with entry i
};

// "p4 client -i" and "p4 client -d NAME".
class CClientCmd : public CCommandBase
{
public:
    CClientCmd();

    // Logs the form, writes it to the child's standard input and runs
    // "client -i".
    bool CreateClient(const TClient& cClient);
    // Runs "client -d NAME", the name unquoted.
    bool DeleteClient(const VCM::CString& strName);

    // Writes the form line "NAME: VALUE".
    void WriteProperty(const wchar_t* szName, const VCM::CString& strValue);
    // Writes the view line ' "LEFT/..." "RIGHT/..."'.
    void WritePathPair(const VCM::CFilePath& cLeft, const VCM::CFilePath& cRight);
    // All seven option words in order, each followed by a blank.
    VCM::CString GetOptionsString(unsigned int nOptions);
    // "local", "unix", "mac", "win", "share"; empty for any other value.
    VCM::CString GetLEOptionsString(TClientLEOption eOption);

private:
    // Writes m_strLine, converted in the C library's locale.
    void WriteLine();

    wxOutputStream* m_pStdIn; // the child's standard input, owned by the capture
    VCM::CString m_strLine;   // scratch text of each line
};

// "p4 sync" of a workspace folder.
class CSyncCmd : public CCommandBase
{
public:
    // Brings everything below the local folder to changelist nChange.
    bool SyncToChange(const VCM::CFilePath& cPath, unsigned int nChange);
    // Removes everything below the folder from the workspace (#none).
    bool RemoveFromClient(const VCM::CFilePath& cPath);
};

} // namespace MP4
} // namespace ORVANE
