// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Platform.h"
#include "tests/support/fakes/FakeAddressBook.h"
#include "tests/support/fakes/FakeApplicationFocus.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeInstanceRegistry.h"
#include "tests/support/fakes/FakeKeychain.h"
#include "tests/support/fakes/FakeLoginItem.h"
#include "tests/support/fakes/FakeMotionPreference.h"
#include "tests/support/fakes/FakeProcessControl.h"
#include "tests/support/fakes/FakeService.h"
#include "tests/support/fakes/FakeSoftwareUpdater.h"
#include "tests/support/fakes/FakeTray.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/FakeWebAuthenticationSession.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/PlainFileCopier.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/fakes/RecordingUpdatePresenter.h"

#include <memory>
#include <string>
#include <utility>

namespace orvel::test {

/// A platform of fakes, accessible by their own types. Initially the user is signed out, the
/// address book is accessible and empty, and the service accepts everything.
class TestPlatform final {
public:
    TestPlatform() {
        bundle.setInfo("CFBundleIdentifier", std::string(RecordingLogStore::subsystem));
        bundle.setInfo("CFBundleDisplayName", "Orvel Agent");
        bundle.setInfo("CFBundleShortVersionString", "1.2.3");
        bundle.setInfo("API_HOST", "api.test.example");
        bundle.setInfo("WEB_HOST", "www.test.example");
        bundle.setInfo("IDENTITY_TOOLKIT_URL", "https://identity.test.example/v1/");
        bundle.setInfo("SECURE_TOKEN_URL", "https://token.test.example/v1/token");
        bundle.setInfo("SUFeedURL", "https://updates.test.example/appcast.xml");
        bundle.setInfo("SUPublicEDKey", "a key");
    }

    /// Stores a session, as if an earlier process had signed in.
    void storeSession(const std::string& email = "one@orvel.example") {
        keychain.items[{std::string(RecordingLogStore::subsystem) + ".session", "session"}] =
            R"({"refreshToken":"refresh-0","uid":"uid-1","handle":"one","email":")" + email +
            R"("})";
    }

    /// Makes the user sign in as soon as the page opens.
    void letTheUserSignIn() {
        browser.user = [](const FakeWebAuthenticationSession::Page&) {
            return FakeWebAuthenticationSession::Outcome("orvelagent://callback?code=code");
        };
    }

    Platform platform;
    ManualClock& clock = add<ManualClock>(platform.clock);
    RecordingLogStore& logStore = add<RecordingLogStore>(platform.logStore, clock);
    FakeBundle& bundle = add<FakeBundle>(platform.bundle);
    InMemoryUserDefaults& userDefaults = add<InMemoryUserDefaults>(platform.userDefaults);
    PlainFileCopier& fileCopier = add<PlainFileCopier>(platform.fileCopier);
    FakeURLSession& urlSession = add<FakeURLSession>(platform.urlSession);
    FakeAddressBook& addressBook = add<FakeAddressBook>(platform.addressBook);
    FakeWorkspace& workspace = add<FakeWorkspace>(platform.workspace);
    FakeInstanceRegistry& instanceRegistry = add<FakeInstanceRegistry>(platform.instanceRegistry);
    FakeMotionPreference& motionPreference = add<FakeMotionPreference>(platform.motionPreference);
    FakeTray& tray = add<FakeTray>(platform.tray);
    FakeApplicationFocus& applicationFocus = add<FakeApplicationFocus>(platform.applicationFocus);
    FakeProcessControl& processControl = add<FakeProcessControl>(platform.processControl);
    FakeKeychain& keychain = add<FakeKeychain>(platform.keychain);
    FakeWebAuthenticationSession& browser =
        add<FakeWebAuthenticationSession>(platform.webAuthenticationSession);
    FakeLoginItem& loginItem = add<FakeLoginItem>(platform.loginItem);
    FakeSoftwareUpdater& softwareUpdater = add<FakeSoftwareUpdater>(platform.softwareUpdater);

    FakeService service{urlSession};
    RecordingUpdatePresenter updatePresenter;

private:
    template <typename Fake, typename Port, typename... Arguments>
    static Fake& add(std::unique_ptr<Port>& port, Arguments&... arguments) {
        auto fake = std::make_unique<Fake>(arguments...);
        Fake& reference = *fake;
        port = std::move(fake);
        return reference;
    }
};

} // namespace orvel::test
