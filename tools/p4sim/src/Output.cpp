#include "Output.h"

#include <cstdint>

namespace p4sim {

void Output::PutString(std::string& out, const std::string& s)
{
    out += 's';
    uint32_t n = uint32_t(s.size());
    for (int i = 0; i < 4; ++i) out += char((n >> (8 * i)) & 0xFF);
    out += s;
}

void Output::PutInt(std::string& out, int v)
{
    out += 'i';
    uint32_t n = uint32_t(v);
    for (int i = 0; i < 4; ++i) out += char((n >> (8 * i)) & 0xFF);
}

void Output::Stat(const Record& fields, const std::string& plain)
{
    switch (m_mode) {
    case OutputMode::Marshal:
        m_out += '{';
        PutString(m_out, "code");
        PutString(m_out, "stat");
        for (const auto& kv : fields) {
            PutString(m_out, kv.first);
            PutString(m_out, kv.second);
        }
        m_out += '0';
        break;
    case OutputMode::Tagged:
        for (const auto& kv : fields) {
            m_out += "... " + kv.first + " " + kv.second + "\n";
        }
        m_out += "\n";
        break;
    case OutputMode::Plain:
        m_out += plain;
        break;
    }
}

void Output::Info(const std::string& text, int level)
{
    if (m_mode == OutputMode::Marshal) {
        m_out += '{';
        PutString(m_out, "code");
        PutString(m_out, "info");
        PutString(m_out, "data");
        PutString(m_out, text);
        PutString(m_out, "level");
        PutInt(m_out, level);
        m_out += '0';
    } else {
        m_out += text + "\n";
    }
}

void Output::Message(const std::string& text, int severity, int generic)
{
    if (severity >= 3) m_failed = true;
    if (m_mode == OutputMode::Marshal) {
        m_out += '{';
        PutString(m_out, "code");
        PutString(m_out, "error");
        PutString(m_out, "data");
        PutString(m_out, text + "\n");
        PutString(m_out, "severity");
        PutInt(m_out, severity);
        PutString(m_out, "generic");
        PutInt(m_out, generic);
        m_out += '0';
    } else {
        m_err += text + "\n";
    }
}

void Output::Content(const std::string& data, bool binary)
{
    if (m_mode == OutputMode::Marshal) {
        m_out += '{';
        PutString(m_out, "code");
        PutString(m_out, binary ? "binary" : "text");
        PutString(m_out, "data");
        PutString(m_out, data);
        m_out += '0';
    } else {
        m_out += data;
    }
}

}  // namespace p4sim
