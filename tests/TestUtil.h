// TestUtil.h - small helpers shared by the test binaries.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qxtest {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents on
// destruction. Tests write here, never into the source tree.
class TempDir {
  public:
    TempDir() {
        const char* base = std::getenv("TMPDIR");
        std::string tmpl = std::string(base && *base ? base : "/tmp") + "/qxtest.XXXXXX";
        char* made = mkdtemp(tmpl.data());
        m_path = made ? made : "";
    }
    ~TempDir() {
        std::error_code ec;
        if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
};

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs fn with standard output captured; returns what it printed.
template <typename Fn>
std::string CaptureStdout(Fn fn) {
    std::fflush(stdout);
    char path[] = "/tmp/qxstdout.XXXXXX";
    int fd = mkstemp(path);
    int saved = dup(STDOUT_FILENO);
    dup2(fd, STDOUT_FILENO);
    fn();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(fd);
    std::string out = ReadBytes(path);
    unlink(path);
    return out;
}

}  // namespace qxtest
