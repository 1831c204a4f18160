#include <gtest/gtest.h>

#include "host/Connection.h"

using namespace ORVANE;

namespace {
class CRecordingConnection : public VRM::IConnectionProxyBase
{
public:
    VCM::CString m_strAll;

protected:
    void OnInfoMessage(const VCM::CString& strMessage) override { m_strAll += strMessage; }
};
} // namespace

TEST(Connection, EngineHandsInfoMessagesToItsConnection)
{
    CRecordingConnection cConnection;
    VRO::CReposView cView(&cConnection);
    MCE::CConvertEngine cEngine(&cView);
    EXPECT_EQ(&cConnection, cEngine.GetConnection());
    cEngine.GetConnection()->DisplayInfoMsg("%s", L"12: Beginning Import with Perforce\n");
    cEngine.GetConnection()->DisplayInfoMsg("%s", L"13: second\n");
    EXPECT_TRUE(cConnection.m_strAll == VCM::CString(L"12: Beginning Import with Perforce\n13: second\n"));
}

TEST(Connection, ViewWithoutConnection)
{
    VRO::CReposView cView;
    MCE::CConvertEngine cEngine(&cView);
    EXPECT_EQ(nullptr, cEngine.GetConnection());
    CRecordingConnection cConnection;
    cView.SetConnection(&cConnection);
    EXPECT_EQ(&cConnection, cEngine.GetConnection());
}
