// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppServiceLoginItem.h"

#include "platform/macos/support/FoundationConversions.h"

#import <ServiceManagement/ServiceManagement.h>

#include <utility>

namespace orvel {

namespace {

LoginItem::Status statusOf(SMAppService* service) {
    switch (service.status) {
    case SMAppServiceStatusEnabled:
        return LoginItem::Status::Enabled;
    case SMAppServiceStatusRequiresApproval:
        return LoginItem::Status::Disabled;
    case SMAppServiceStatusNotRegistered:
    // The status of an application that has never been registered.
    case SMAppServiceStatusNotFound:
        break;
    }
    return LoginItem::Status::NotRegistered;
}

/// The error, if any. The system also reports an error if the service already has the wanted
/// status, which is ignored.
std::optional<tavrin::PlatformError>
failure(BOOL isDone, NSError* error, SMAppService* service, LoginItem::Status wanted) {
    if (isDone || statusOf(service) == wanted) {
        return std::nullopt;
    }
    return platformError(error);
}

} // namespace

AppServiceLoginItem::AppServiceLoginItem(SMAppService* service)
    : service_(service),
      calls_(dispatch_queue_create("app.orvel.OrvelAgent.login-item", DISPATCH_QUEUE_SERIAL)) {}

void AppServiceLoginItem::registerItem(Completion completion) {
    const auto change = changes_.add(std::move(completion));
    SMAppService* const service = service_;
    dispatch_async(calls_, ^{
      NSError* error = nil;
      const BOOL isDone = [service registerAndReturnError:&error];
      change.finish(failure(isDone, error, service, Status::Enabled));
    });
}

void AppServiceLoginItem::unregisterItem(Completion completion) {
    const auto change = changes_.add(std::move(completion));
    SMAppService* const service = service_;
    dispatch_async(calls_, ^{
      NSError* error = nil;
      const BOOL isDone = [service unregisterAndReturnError:&error];
      change.finish(failure(isDone, error, service, Status::NotRegistered));
    });
}

void AppServiceLoginItem::repairItem(Completion completion) {
    const auto change = changes_.add(std::move(completion));
    dispatch_async(calls_, ^{
      change.finish(std::nullopt);
    });
}

void AppServiceLoginItem::status(StatusCompletion completion) {
    const auto question = questions_.add(std::move(completion));
    SMAppService* const service = service_;
    dispatch_async(calls_, ^{
      question.finish(statusOf(service));
    });
}

} // namespace orvel
