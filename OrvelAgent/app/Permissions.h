// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Worker.h"

#include <QCoroTask>

#include <filesystem>

/// What the agent cannot take by itself.
namespace orvel::Permissions {

/// Whether the Messages database can be read, found out by reading a byte of it. One that is not
/// there cannot be told from one that may not be read. Waits for the disk.
[[nodiscard]] bool hasFullDiskAccess(const std::filesystem::path& database);

/// The same, found out by the worker, which must outlive the probe.
QCoro::Task<bool> probeFullDiskAccess(Worker* worker, std::filesystem::path database);

} // namespace orvel::Permissions
