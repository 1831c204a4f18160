// What a command prints, in the three forms a `p4` client can print it:
// marshalled dictionaries (-G), tagged text (-z tag) and plain text.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace p4sim {

using Record = std::vector<std::pair<std::string, std::string>>;

enum class OutputMode { Plain, Tagged, Marshal };

class Output {
public:
    explicit Output(OutputMode mode) : m_mode(mode) {}

    OutputMode Mode() const { return m_mode; }

    // One result record ("code" "stat" is put first in -G form). plain is
    // the text line(s) a client prints without -G, newline included.
    void Stat(const Record& fields, const std::string& plain);

    // An informational message ("Client x saved."). Without -G it goes to
    // standard output followed by a newline.
    void Info(const std::string& text, int level = 0);

    // A warning (severity 2) or an error (severity 3 or 4). Without -G it
    // goes to standard error. An error makes the exit status 1.
    void Message(const std::string& text, int severity, int generic);

    // File content as `print` sends it: "text" or "binary" records with -G,
    // the raw bytes otherwise.
    void Content(const std::string& data, bool binary);

    // Raw text on standard output (forms, plain listings).
    void Raw(const std::string& text) { m_out += text; }

    const std::string& StdOut() const { return m_out; }
    std::string& StdOut() { return m_out; }
    const std::string& StdErr() const { return m_err; }
    int ExitStatus() const { return m_failed ? 1 : 0; }
    void SetFailed() { m_failed = true; }

    // Marshal encoding (Python marshal version 0) of one dictionary whose
    // values are strings, then the integer fields.
    static void PutString(std::string& out, const std::string& s);
    static void PutInt(std::string& out, int v);

private:
    OutputMode m_mode;
    std::string m_out;
    std::string m_err;
    bool m_failed = false;
};

}  // namespace p4sim
