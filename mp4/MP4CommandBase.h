// The base of every Perforce command wrapper: runs one p4 command line
// through a child-process capture, logs what it ran and why it failed, and
// reads the marshalled records that "p4 -G" writes on standard output.
#pragma once

#include <wx/stream.h>

#include "host/BinaryData.h"
#include "host/ProcessCapture.h"
#include "host/String.h"

namespace ORVANE {
namespace MP4 {

class CCommandBase
{
public:
    CCommandBase();
    CCommandBase(const CCommandBase&) = delete;
    CCommandBase& operator=(const CCommandBase&) = delete;
    virtual ~CCommandBase();

    // The program name or path of the p4 client, shared by every command.
    // Used as it stands: no validation, trimming or quoting.
    static void SetP4Executable(const VCM::CString& strPath);

    static VCM::CString s_strP4Executable;

protected:
    // Runs "<executable> <strCommand>"; true when the child exited with 0.
    // A failure is logged with the first line of the child's standard error.
    bool Execute(const VCM::CString& strCommand);

    // The next child's standard input; bytes written here before Execute are
    // fed to it.
    wxOutputStream* GetStdInputStream();

    // Reads one key/value pair of the marshalled output.
    //   0  nothing more to read
    //   1  a pair was read into strKey and strValue
    //   2  an item that is not understood, or a broken string: stop reading
    //   3  the end of a record
    int GetNextPair(VCM::CString& strKey, VCM::CString& strValue);
    // Reads one string item at the current position; str is assigned only on
    // success.
    bool ReadString(VCM::CString& str);

private:
    VCM::CProcessCapture m_cCapture;
    wxInputStream* m_pStdOut;     // the last successful child's output, owned by m_cCapture
    VCM::CBinaryData m_cReadBuffer; // reused for every string body
};

} // namespace MP4
} // namespace ORVANE
