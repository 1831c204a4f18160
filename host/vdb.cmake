# The record database (namespace ORVANE::VDB) on SQLite.
list(APPEND ORVANE_CORE_HEADERS
    DirectoryData.h
    VDB.h
    VDBDatabase.h
    VDBIterator.h
    VDBRecord.h
)
list(APPEND ORVANE_CORE_SOURCES
    VDBIterator.cpp
    VDBStore.cpp
    VDBTable.cpp
)
list(APPEND ORVANE_CORE_LINK_PRIVATE SQLite::SQLite3)
