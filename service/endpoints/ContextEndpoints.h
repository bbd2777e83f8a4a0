// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel::service {

class KnownHandles;
class RecordStore;
class Router;

/// Adds the endpoints below "/api/v1/context": ingest, handle-digest and diagnostics. The arguments
/// must outlive the router.
void addContextEndpoints(Router& router, RecordStore& store, const KnownHandles& knownHandles);

} // namespace orvel::service
