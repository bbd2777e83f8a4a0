// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel::service {

class RecordStore;
class Router;

/// Adds the page at "/", which lists what was received. The store must outlive the router.
void addStatusPage(Router& router, const RecordStore& store);

} // namespace orvel::service
