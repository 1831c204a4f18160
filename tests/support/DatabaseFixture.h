// The set-up that record database tests share: a scratch folder, a new
// database in it and a transaction. A derived fixture opens its tables
// after OpenDatabase and closes them before CloseDatabase.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "Scratch.h"
#include "host/VDB.h"

namespace ORVANE {
namespace TEST {

// The connection string that creates the database at the base path.
inline VCM::CString DatabaseConnection(const std::string& strBasePath)
{
    VCM::CString str;
    str.Format(L"type=native;path=%s;create=1;nobinaries=1", wxString(strBasePath).wc_str());
    return str;
}

class CDatabaseFixture : public ::testing::Test
{
protected:
    // The connection string for the base path "<folder>/<name>".
    VCM::CString Connection(const std::string& strName = "db") const
    {
        return DatabaseConnection(m_cFolder.File(strName));
    }

    // Creates the database "<folder>/<name>" and starts a transaction.
    void OpenDatabase(const std::string& strName = "db")
    {
        ASSERT_FALSE(m_cFolder.Path().empty());
        m_pDb = VDB::CDatabaseFactory::Create(Connection(strName));
        ASSERT_NE(m_pDb, nullptr);
        m_pTx = new VDB::CTransaction(m_pDb, 60000);
    }

    // Ends the transaction (without committing it) and releases the
    // database.
    void CloseDatabase()
    {
        delete m_pTx;
        m_pTx = nullptr;
        if (m_pDb)
            m_pDb->Release();
        m_pDb = nullptr;
    }

    void TearDown() override { CloseDatabase(); }

    CScratchFolder m_cFolder{"vdbtest"};
    VDB::CDatabase* m_pDb = nullptr;
    VDB::CTransaction* m_pTx = nullptr;
};

} // namespace TEST
} // namespace ORVANE
