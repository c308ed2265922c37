// SPDX-License-Identifier: MIT
// velor_window_gallery FOLDER [LANGUAGE]: writes pictures of the windows and sheets, in light
// and dark, to be looked at. QT_SCALE_FACTOR sets their scale.
#include <QDialog>
#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QTime>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "Velor/views/VLMediaPlaybackWindow.h"
#include "Velor/views/VLOSCSetupWindowController.h"
#include "Velor/views/VLTranslation.h"
#include "Velor/views/VLVideoView.h"
#include "platform/host/Log.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class Gallery final : public WindowFixture {
 public:
  explicit Gallery(const char* folder) : mFolderOfPictures(folder) {}

  void TestBody() override {
    const QPalette light = QApplication::palette();
    for (const bool isDark : {false, true}) {
      QApplication::setPalette(isDark ? darkPalette() : light);
      mTheme = isDark ? "dark" : "light";
      open();
      save(*mMain, "empty");
      fill();
      save(*mMain, "stopped");
      savePicturesOfARun();
      saveOSCSetup();
      saveClip();
      saveSheets();
      saveDevices();
      close();
      KVSharedInstances::clear();
      saveNotices();
    }
  }

 private:
  void savePicturesOfARun() {
    child<QWidget>("armButton").setFocus(Qt::TabFocusReason);
    clock().setPlayMode(VLPlayModeLoop);
    app().popOutMainCounter();
    app().play();
    mHost.advance(22 * kFrame25);
    settle();
    save(*mMain, "main");
    for (QWidget* each : QApplication::topLevelWidgets()) {
      if (each->objectName() == "bigTimecodeWindow") {
        each->resize(640, 480);
        settle();
        save(*each, "big");
        each->close();
      }
    }
  }
  void saveSheets() {
    app().openPlaybackRateSheet();
    settle();
    saveSheet("rate");
    mMain->quit();
    settle();
    saveSheet("quit");
  }
  // All that a status row can have to say, with more rows than there is room for.
  void saveNotices() {
    std::filesystem::create_directories(folders().state());
    std::ofstream(folders().state() / VLRecovery::kFileName) << "{}";
    open();
    for (int i = 0; i < 200; ++i) {
      goTo(QTime(1, i / 60, i % 60).toString("hh:mm:ss':00'").toStdString());
      app().addMarker();
    }
    app().setSyncSource(addSource("Desk with a long name of its port"));
    mHost.advance(kFrame25);
    VELOR_LOG_WARNING("lost the JACK server; will reconnect");
    mHost.advance(host::kNsPerSecond);
    settle();
    save(*mMain, "notices");
    mMain->resize(mMain->minimumSizeHint().width(), 300);
    settle();
    save(*mMain, "notices-narrow");
    close();
    KVSharedInstances::clear();
    std::filesystem::remove_all(folders().state());
  }
  static QPalette darkPalette() {
    QPalette palette(QColor(45, 45, 48));
    palette.setColor(QPalette::Base, QColor(30, 30, 32));
    palette.setColor(QPalette::AlternateBase, QColor(37, 37, 40));
    palette.setColor(QPalette::Highlight, QColor(42, 110, 200));
    for (const auto role : {QPalette::ButtonText, QPalette::WindowText, QPalette::Text}) {
      palette.setColor(QPalette::Disabled, role, QColor(130, 130, 134));
    }
    return palette;
  }
  void fill() {
    appear("Console");
    appear("Recorder with quite a long name, as some programs give their ports");
    manager().createGenerator();
    settle();
    manager().destinations()[0]->setEnable(true);
    app().setSyncSource(addSource("Desk"));
    const char* names[] = {"Walk-in", "Act 1", "Act 2", "Interval", "Finale"};
    const char* times[] = {"00:58:00:00", "01:00:00:00", "01:22:10:05", "01:45:00:00",
                           "02:31:59:24"};
    for (int i = 0; i < 5; ++i) {
      goTo(times[i]);
      app().addMarker();
      app().markers().controller().selectedObjects().front()->setName(names[i]);
    }
    goTo("01:00:12:07");
    app().gotoPrevMarker();
    goTo("01:00:12:07");
    settle();
  }
  void saveDevices() {
    app().stop();
    VLDeviceWindows& windows = mMain->deviceWindows();
    windows.showDestinationsWindow();
    settle();
    VLDestinationsViewController& list = *windows.destinationsWindow();
    const auto device = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(manager().devices()[0]);
    save(list, "devices-generator");
    device->generator()->setLevel(1);
    inputOf(*device)->setEnable(true);
    const auto reader = manager().createrReader();
    manager().createrReader();
    settle();
    QWidget& output = windows.windowControllerForDevice(device)->window();
    QWidget& input = windows.windowControllerForDevice(reader)->window();
    settle();
    save(output, "generator-idle");
    save(input, "reader-new");
    app().play();
    mHost.advance(50 * kFrame25);
    input.findChild<QWidget*>("stopFreewheelingButton")->setFocus(Qt::TabFocusReason);
    settle();
    save(output, "generator-running");
    save(input, "reader-lock");
    app().stop();
    reader->setFreewheelTime(-1);
    mHost.advance(50 * kFrame25);
    list.findChild<QTableView*>("deviceTable")->selectRow(1);
    settle();
    save(input, "reader-freewheel");
    save(list, "devices-three");
    mLoopback->vanish();
    settle();
    save(output, "generator-missing");
    save(input, "reader-missing");
    mLoopback->appear();
    settle();
    manager().removeDevicesAtIndexes({0, 1, 2});
    settle();
    save(list, "devices-empty");
  }
  void saveOSCSetup() {
    app().showOSCSetup();
    settle();
    auto* window = WindowFixture::window<VLOSCSetupWindowController>();
    save(*window, "osc-empty");
    window->changeServerStatus();
    VLOSCServer& server = app().server();
    for (const char* host : {"192.168.2.31", "192.168.2.40", "fe80::42:c0ff:fea8:202"}) {
      server.addHostFilterObject(VLOSCHostFilterEntry::initWithAddress(
          host, std::weak_ptr<VLOSCHostFilterEntryDelegate>()));
    }
    server.objectInHostFilterAtIndex(0)->setEnabled(true);
    window->addClientEntry();
    const auto desk = VLOSCClient::initWithUdpHost("10.0.0.7", 9100);
    desk->setServiceName("Lighting desk with quite a long name");
    auto& targets = VLOSCClientDispatcher::sharedDispatcher();
    targets.addClient(desk);
    targets.addClient(VLUserDefinedOSCClient::initWithUdpHost("desk.show", 9000));
    targets.clients().front()->setEnabled(false);
    settle();
    window->findChild<QWidget*>("clientsTableView")->setFocus(Qt::TabFocusReason);
    settle();
    save(*window, "osc");
    window->resize(window->minimumSizeHint());
    settle();
    save(*window, "osc-narrow");
    window->changeServerStatus();
    mNetwork.failNext(SimulatedUDPNetwork::Call::bind, EADDRINUSE);
    window->changeServerStatus();
    settle();
    if (QDialog* sheet = window->sheets().current()) {
      save(*sheet, "osc-refused");
      sheet->accept();
    }
    window->close();
    settle();
  }
  // Colour bars as the picture.
  static std::shared_ptr<const media::VideoFrame> bars() {
    static const QImage kPicture = [] {
      QImage picture(1280, 720, QImage::Format_RGB32);
      QPainter painter(&picture);
      const auto colors = {Qt::white,   Qt::yellow, Qt::cyan, Qt::green,
                           Qt::magenta, Qt::red,    Qt::blue};
      int place = 0;
      for (const QColor color : colors) {
        painter.fillRect(QRect(place++ * 183, 0, 183, 720), color.darker(130));
      }
      return picture;
    }();
    return std::make_shared<media::VideoFrame>(
        media::VideoFrame{.width = kPicture.width(),
                          .height = kPicture.height(),
                          .bytesPerRow = static_cast<std::size_t>(kPicture.bytesPerLine()),
                          .data = kPicture.constBits(),
                          .owner = nullptr});
  }
  void saveClip() {
    const auto folder = folders().state() / "clips";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "Act 1.mp4") << "";
    mMedia.clips["Act 1.mp4"].title = "Act 1, with quite a long name, as some editors write them";
    const auto start = KVSMPTETime::smpteTimeWithString("01:00:00:00", kSMPTETimeType25);
    const auto clip = app().mediaWindows().open(folder / "Act 1.mp4", start->timeStamp(), false);
    mHost.advance(host::kNsPerSecond);
    settle();
    auto* window = WindowFixture::window<VLMediaPlaybackWindow>();
    app().stop();
    goTo("01:00:00:00");
    app().play();
    mHost.advance(55 * kFrame25);
    settle();
    auto& view = *window->findChild<VLVideoView*>("playerView");
    view.setFrame(bars());
    save(*window, "clip");
    window->resize(window->minimumSizeHint());
    settle();
    save(*window, "clip-narrow");
    window->resize(800, 640);
    window->findChild<QWidget*>("positionSlider")->setFocus(Qt::TabFocusReason);
    auto& menu = *window->findChild<QMenu*>();
    menu.popup({});
    settle();
    save(menu, "clip-action");
    menu.close();
    mMedia.players.back()->fail(
        "cannot play 'Act 1.mp4': the file could not be read; check its disk");
    settle();
    if (auto* sheet = window->findChild<QDialog*>()) {
      save(*sheet, "clip-sheet");
      sheet->accept();
      settle();
    }
    save(*window, "clip-failed");
    window->close();
    settle();
  }
  void save(QWidget& widget, const char* name) {
    widget.grab().save(mFolderOfPictures.filePath(QString("%1-%2.png").arg(name, mTheme)));
  }
  void saveSheet(const char* name) {
    if (QDialog* sheet = mMain->sheets().current()) {
      save(*sheet, name);
      sheet->reject();
      settle();
    }
  }

  const QDir mFolderOfPictures;
  QString mTheme;
};

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::fputs("usage: velor_window_gallery FOLDER [LANGUAGE]\n", stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  QApplication::setStyle("Fusion");
  velor::VLTranslation::install(application, QLocale(argc == 3 ? argv[2] : "en"));
  velor::Gallery(argv[1]).TestBody();
  return 0;
}
