// A program that uses the installed host core library.
#include <cstdio>

#include "host/VCM.h"

using namespace ORVANE;

int main()
{
    VCM::CFilePath cPath;
    if (!cPath.Parse(L"//depot/main/...", -1, false))
        return 2;
    VCM::CMap<VCM::CString, VCM::CString> mapSettings;
    mapSettings.SetAt(L"P4Path", L"p4");
    VCM::CString strValue;
    mapSettings.GetAt(L"P4Path", strValue);

    VCM::CArray<int> anValues(0);
    anValues.Add(1);
    VCM::CString strError;
    try
    {
        anValues.GetAt(3);
    }
    catch (const EArrayIndexOutOfRange& e)
    {
        strError = e.GetErrorMessage();
    }

    VCM::CString strLine;
    strLine.Format(L"%s has %u items; P4Path=%s; %s", cPath.GeneratePath(L'/', true), cPath.GetItemCount(), strValue,
                   strError);
    std::printf("%s\n", static_cast<const char*>(strLine.utf8_str()));
    return 0;
}
