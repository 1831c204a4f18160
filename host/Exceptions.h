// Exceptions thrown by the host containers, and the opaque iteration cursor.
#pragma once

#include <cstdint>

#include "host/String.h"

namespace ORVANE {

// Iteration cursor of the host containers. For arrays and maps a position is
// a 1-based element index stored in the pointer value; null means "before the
// first element" when starting and "no further element" when returned.
struct __POSITION
{
};
typedef __POSITION* POSITION;

inline int PtrToInt(void* p)
{
    return static_cast<int>(reinterpret_cast<intptr_t>(p));
}

inline POSITION IntToPosition(int n)
{
    return reinterpret_cast<POSITION>(static_cast<intptr_t>(n));
}

class EBaseException
{
public:
    EBaseException() = default;
    EBaseException(const EBaseException&) = default;
    EBaseException& operator=(const EBaseException&) = default;
    virtual ~EBaseException();
    virtual VCM::CString GetErrorMessage() const = 0;
};

class EArrayIndexOutOfRange : public EBaseException
{
public:
    explicit EArrayIndexOutOfRange(int nIndex) : m_nIndex(nIndex) {}
    ~EArrayIndexOutOfRange() override;
    VCM::CString GetErrorMessage() const override;
    int32_t GetIndex() const { return m_nIndex; }

private:
    int32_t m_nIndex;
};

class EMapIndexOutOfRange : public EBaseException
{
public:
    explicit EMapIndexOutOfRange(int nIndex) : m_nIndex(nIndex) {}
    ~EMapIndexOutOfRange() override;
    VCM::CString GetErrorMessage() const override;
    int32_t GetIndex() const { return m_nIndex; }

private:
    int32_t m_nIndex;
};

} // namespace ORVANE
