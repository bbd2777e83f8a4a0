// SPDX-License-Identifier: Apache-2.0
//
// A complete update: signed by the tool, served by the real service, found through the service's
// bundle, and installed over the running AppImage.
#include "OrvelAgent/update/UpdaterService.h"
#include "platform/linux/network/CurlURLSession.h"
#include "platform/linux/storage/PlistBundle.h"
#include "platform/linux/update/AppcastUpdater.h"
#include "service/LocalService.h"
#include "tests/support/FileContent.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UpdateFolder.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/fakes/RecordingUpdatePresenter.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using service::LocalService;
using test::contentOf;
using testing::ElementsAre;

class UpdateTest : public testing::Test {
protected:
    UpdateTest() {
        std::filesystem::create_directory(directory_ / "mounted");
        std::filesystem::create_directory(directory_ / "apps");
        test::writeFile(appImage_, "the old version");
        chmod(appImage_.c_str(), 0755);

        LocalService::Options options;
        options.store = directory_ / "records.sqlite";
        options.certificates = directory_ / "certificates";
        options.updates = updates_.path();
        options.updatePublicKey = updates_.publicKey();
        service_ = std::make_unique<LocalService>(std::move(options));
        service_->start();
        service_->writeBundle(directory_ / "bundle");

        CurlURLSession::Trust trust;
        trust.extraCertificates = {service_->caFile()};
        session_ = std::make_unique<CurlURLSession>(std::move(trust));
        AppcastUpdater::Agent agent = AppcastUpdater::thisAgent("0.1.0", directory_ / "Downloads");
        const ProgramTraces traces{
            directory_ / "mounted" / "orvel-agent", appImage_, directory_ / "mounted"};
        agent.installation = UpdateInstallation(traces, directory_ / "Downloads");
        updater_ = std::make_unique<AppcastUpdater>(*session_, clock_, defaults_, log_, agent);
        const PlistBundle bundle(directory_ / "bundle");
        updaterService_ = std::make_unique<UpdaterService>(bundle, *updater_, presenter_);
        presenter_.onOffer = [this] {
            updater_->choose(SoftwareUpdater::Choice::Install);
        };
        presenter_.onReadyToInstall = presenter_.onOffer;
    }

    void publish(const std::string& update) { updates_.publish(update, service_->url()); }

    /// Everything that is shown to the user from the check for updates to its result.
    std::vector<std::string> outcome() {
        QTimer limit;
        limit.setSingleShot(true);
        limit.start(std::chrono::seconds(60));
        presenter_.clear();
        updater_->checkForUpdates();
        const auto hasEnded = [this] {
            const std::string& last = presenter_.shown().back();
            return last.ends_with('.') || last == "no update" || last == "relaunch";
        };
        while (!hasEnded() && limit.isActive()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        EXPECT_TRUE(hasEnded());
        return presenter_.shown();
    }

    test::TemporaryDirectory directory_;
    test::UpdateFolder updates_{SIGN_UPDATE, directory_ / "updates"};
    std::filesystem::path appImage_ = directory_ / "apps" / "Agent.AppImage";
    std::unique_ptr<LocalService> service_;
    std::unique_ptr<CurlURLSession> session_;
    test::ManualClock clock_;
    test::InMemoryUserDefaults defaults_;
    test::RecordingLogStore log_;
    test::RecordingUpdatePresenter presenter_;
    std::unique_ptr<AppcastUpdater> updater_;
    std::unique_ptr<UpdaterService> updaterService_;
};

} // namespace

TEST_F(UpdateTest, ASignedUpdateReplacesTheAppImage) {
    const std::string update = "#!/bin/sh\nexit 42\n";
    publish(update);
    EXPECT_THAT(
        outcome(),
        ElementsAre(
            "checking",
            "update 9.0.0 in focus",
            "download",
            "verification",
            "ready 9.0.0",
            "relaunch"));
    EXPECT_EQ(contentOf(appImage_), update);
    EXPECT_EQ(WEXITSTATUS(std::system(appImage_.c_str())), 42);
    EXPECT_EQ(updaterService_->lastCheck(), clock_.now());
    EXPECT_EQ(service_->requestCount(), 2U);
}

TEST_F(UpdateTest, AModifiedUpdateIsRefused) {
    publish("the new version");
    test::writeFile(updates_.appImage(), "the bad version");
    EXPECT_EQ(outcome().back(), "The signature of the update is not valid. It was not installed.");
    EXPECT_EQ(contentOf(appImage_), "the old version");
}

TEST_F(UpdateTest, AnInterruptedDownloadCanBeRetried) {
    publish("the new version");
    service::Fault fault = service::Fault::acceptThenCutOff();
    fault.path = "/updates/Agent.AppImage";
    service_->script(fault);
    EXPECT_EQ(outcome().back(), "The update could not be loaded. The network connection was lost.");
    EXPECT_EQ(contentOf(appImage_), "the old version");
    EXPECT_EQ(outcome().back(), "relaunch");
    EXPECT_EQ(contentOf(appImage_), "the new version");
}

TEST_F(UpdateTest, AServiceWithoutAFeedIsReported) {
    EXPECT_THAT(
        outcome(),
        ElementsAre(
            "checking",
            "The update feed could not be loaded: the server answered with status 404."));
}

} // namespace orvel
