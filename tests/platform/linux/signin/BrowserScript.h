// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/TemporaryDirectory.h"

#include <QByteArray>
#include <QtGlobal>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvel::test {

/// Makes a script the default browser, which records its URL and environment. After `stayOpen` it
/// runs until closed or destroyed.
class BrowserScript final {
public:
    BrowserScript() {
        mkfifo(door().c_str(), 0600);
        // Open the pipe for reading and writing, so that opening does not block and no data is lost
        // without a reader.
        door_.open(door(), std::ios::in | std::ios::out);
        write("exit 0");
        qputenv("BROWSER", QByteArray::fromStdString(script().string()));
    }
    ~BrowserScript() {
        close();
        qunsetenv("BROWSER");
    }
    BrowserScript(const BrowserScript&) = delete;
    BrowserScript& operator=(const BrowserScript&) = delete;

    /// Makes opening a page fail.
    void fail() { write("exit 1"); }

    /// Makes the browser stay open.
    void stayOpen() { write("read closed <" + door().string()); }

    /// Closes the browser as the user would.
    void close() { door_ << std::endl; }

    /// The last opened page; empty if none.
    [[nodiscard]] std::string url() const { return contentOf(folder_ / "url"); }
    [[nodiscard]] std::string environment() const { return contentOf(folder_ / "environment"); }
    /// The process id of the last opened browser.
    [[nodiscard]] std::string pid() const { return contentOf(folder_ / "pid"); }

private:
    [[nodiscard]] std::filesystem::path script() const { return folder_ / "browser"; }
    [[nodiscard]] std::filesystem::path door() const { return folder_ / "door"; }

    [[nodiscard]] static std::string contentOf(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    void write(const std::string& end) {
        const std::string folder = folder_.path().string();
        std::ofstream(script()) << "#!/bin/sh\n"
                                << "printf %s \"$PPID\" >" << folder << "/pid\n"
                                << "env >" << folder << "/environment\n"
                                << "printf %s \"$1\" >" << folder << "/new\n"
                                << "mv " << folder << "/new " << folder << "/url\n"
                                << end << "\n";
        std::filesystem::permissions(script(), std::filesystem::perms::owner_all);
    }

    TemporaryDirectory folder_;
    std::fstream door_;
};

} // namespace orvel::test
