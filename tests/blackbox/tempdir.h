// A scratch directory and a whole-file read, for the black-box harness and the in-process tests.
#ifndef TESTS_BLACKBOX_TEMPDIR_H
#define TESTS_BLACKBOX_TEMPDIR_H

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace blackbox {

// A fresh directory under the temporary directory, removed with its contents.
class TempDir {
public:
    TempDir() : path_((std::filesystem::temp_directory_path() / "tarntest-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

inline std::string ReadFile(const std::string& path) {
    return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

}  // namespace blackbox

#endif
