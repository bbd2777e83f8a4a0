// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/PropertyListUserDefaults.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/FileLock.h"
#include "core/ParentFolders.h"
#include "core/RegularFile.h"
#include "platform/macos/storage/UserDefaultsValues.h"
#include "platform/macos/support/FoundationConversions.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>

namespace orvel {

namespace values = user_defaults_values;

namespace {

using tavrin::FileDescriptor;
using tavrin::PlatformError;
using tavrin::RegularFile;

[[noreturn]] void failToRead(const std::filesystem::path& file, int code) {
    throw PlatformError::fromErrno(code, "Could not read the agent's settings in " + file.string());
}

[[noreturn]] void failToSave(int code) {
    throw PlatformError::fromErrno(code, "Could not save the agent's settings");
}

/// No value if the file does not exist.
std::optional<RegularFile> opened(const std::filesystem::path& file) {
    tavrin::refuseFileOfOthers(file, "Could not read the agent's settings");
    try {
        return tavrin::openRegularFile(file);
    } catch (const PlatformError& error) {
        if (error.code() == ENOENT) {
            return std::nullopt;
        }
        failToRead(file, error.code());
    }
}

NSDictionary<NSString*, id>* valuesIn(const std::filesystem::path& file) {
    const std::optional<RegularFile> from = opened(file);
    if (!from) {
        return @{};
    }
    // Changes replace the file, so the size of the open one never changes.
    std::string content(static_cast<std::size_t>(from->size), '\0');
    for (std::size_t length = 0; length < content.size();) {
        const ssize_t count =
            read(from->descriptor.get(), content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            failToRead(file, count < 0 ? errno : EIO);
        }
        length += static_cast<std::size_t>(count);
    }
    const id list = [NSPropertyListSerialization
        propertyListWithData:[NSData dataWithBytes:content.data() length:content.size()]
                     options:NSPropertyListImmutable
                      format:nil
                       error:nil];
    if (![list isKindOfClass:[NSDictionary class]]) {
        // Treating it as empty would lose the user's choices.
        failToRead(file, EBADMSG);
    }
    return list;
}

void flush(int descriptor) {
    // Unlike fsync, this also flushes the drive's cache. Not every file system supports it.
    if (fcntl(descriptor, F_FULLFSYNC) != 0 && fsync(descriptor) != 0) {
        failToSave(errno);
    }
}

/// A temporary file that replaces the target once it is complete.
class NewFile final {
public:
    explicit NewFile(const std::filesystem::path& target)
        : name_(target.string() + ".XXXXXX"), descriptor_(mkstemp(name_.data())) {
        if (!descriptor_.isOpen()) {
            failToSave(errno);
        }
    }
    ~NewFile() {
        if (!hasReplaced_) {
            unlink(name_.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(NSData* content) {
        const char* bytes = static_cast<const char*>(content.bytes);
        for (std::size_t left = content.length; left > 0;) {
            const ssize_t written = ::write(descriptor_.get(), bytes, left);
            if (written < 0 && errno != EINTR) {
                failToSave(errno);
            }
            if (written > 0) {
                bytes += written;
                left -= static_cast<std::size_t>(written);
            }
        }
        flush(descriptor_.get());
    }

    void replaceTarget(const std::filesystem::path& target) {
        if (rename(name_.c_str(), target.c_str()) != 0) {
            failToSave(errno);
        }
        hasReplaced_ = true;
    }

private:
    std::string name_;
    FileDescriptor descriptor_;
    bool hasReplaced_ = false;
};

} // namespace

PropertyListUserDefaults::PropertyListUserDefaults(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file)), values_(valuesIn(file_)) {}

std::optional<tavrin::UserDefaults::Value>
PropertyListUserDefaults::value(std::string_view key) const {
    @autoreleasepool {
        return values::value(object(key));
    }
}

void PropertyListUserDefaults::set(std::string_view key, Value value) {
    @autoreleasepool {
        write(key, values::object(value));
    }
}

void PropertyListUserDefaults::remove(std::string_view key) {
    @autoreleasepool {
        write(key, nil);
    }
}

std::unique_ptr<tavrin::Interface> PropertyListUserDefaults::tryLock() {
    auto lock = tavrin::tryLockFile(file_.string() + ".inuse");
    if (lock) {
        @autoreleasepool {
            Values* const values = valuesIn(file_);
            const std::lock_guard valuesLock(valuesMutex_);
            values_ = values;
        }
    }
    return lock;
}

id PropertyListUserDefaults::object(std::string_view key) const {
    const std::lock_guard lock(valuesMutex_);
    return values_[nsString(key)];
}

void PropertyListUserDefaults::write(std::string_view key, id object) {
    const std::lock_guard writeLock(writeMutex_);
    tavrin::createParentFolders(file_);
    const FileDescriptor folder(
        open(file_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Lock until the folder is closed: otherwise two processes could both read before either
    // writes.
    if (!folder.isOpen() || flock(folder.get(), LOCK_EX) != 0) {
        failToSave(errno);
    }
    NSMutableDictionary<NSString*, id>* const changed = [valuesIn(file_) mutableCopy];
    changed[nsString(key)] = object;
    NSData* const content =
        [NSPropertyListSerialization dataWithPropertyList:changed
                                                   format:NSPropertyListBinaryFormat_v1_0
                                                  options:0
                                                    error:nil];
    if (content == nil) {
        failToSave(EINVAL);
    }
    NewFile file(file_);
    file.write(content);
    file.replaceTarget(file_);
    {
        const std::lock_guard lock(valuesMutex_);
        values_ = [changed copy];
    }
    // The renaming must also survive a power failure.
    if (fsync(folder.get()) != 0) {
        failToSave(errno);
    }
}

} // namespace orvel
