# The record database (namespace ORVANE::VDB) on SQLite.
list(APPEND ORVANE_CORE_HEADERS
    DirectoryData.h
    VDB.h
    VDBDatabase.h
    VDBIterator.h
    VDBRecord.h
)
