// SPDX-License-Identifier: MIT
#include "Velor/views/VLPopOutWindowController.h"

#include <QMap>
#include <QPointer>
#include <memory>

#include "Kv-Appkit/KVException.h"
#include "tests/velor/views/ViewFixture.h"

namespace velor {
namespace {

class Panel final : public VLPanelController {
 public:
  Panel(bool isResizeable, QSize largest) : mIsResizeable(isResizeable), mLargest(largest) {
    mView.resize(276, 159);
  }
  QWidget* view() override { return &mView; }
  QSize minSize() const override { return {276, 159}; }
  QSize maxSize() const override { return mLargest; }
  bool resizeable() const override { return mIsResizeable; }
  QString viewControllerTitle() const override { return "LTC Reader 1"; }
  QString frameSaveName() const override { return "reader"; }

 private:
  const bool mIsResizeable;
  const QSize mLargest;
  QWidget mView;
};

struct Frames final : VLWindowFrames {
  QByteArray frame(const QString& name) const override { return saved.value(name); }
  void saveFrame(const QString& name, const QByteArray& frame) override { saved[name] = frame; }
  QMap<QString, QByteArray> saved;
};

class VLPopOutWindowControllerTest : public ViewFixture {
 protected:
  QSize sizeAfterResize(bool isResizeable,
                        std::optional<VLPopOutWindowController::Attributes> more) {
    VLPopOutWindowController controller(std::make_unique<Panel>(isResizeable, QSize(400, 400)),
                                        more, mFrames);
    controller.showWindow();
    settle();
    EXPECT_EQ(controller.window().windowTitle(), "LTC Reader 1");
    EXPECT_EQ(controller.viewController().view()->window(), &controller.window());
    controller.window().resize(500, 300);
    settle();
    EXPECT_EQ(controller.viewController().view()->size(), controller.window().size());
    return controller.window().size();
  }
  const std::shared_ptr<Frames> mFrames = std::make_shared<Frames>();
};

TEST_F(VLPopOutWindowControllerTest, APanelKeepsItsSizeUnlessItOrTheAttributesAllowAnother) {
  EXPECT_EQ(sizeAfterResize(false, {}), QSize(276, 159));
  mFrames->saved.clear();
  EXPECT_EQ(sizeAfterResize(true, {}), QSize(400, 300));
  EXPECT_FALSE(mFrames->saved["reader"].isEmpty());
  VLPopOutWindowController next(std::make_unique<Panel>(true, QSize(400, 400)), {}, mFrames);
  EXPECT_EQ(next.window().size(), QSize(400, 300));
  mFrames->saved.clear();
  EXPECT_EQ(
      sizeAfterResize(
          false, VLPopOutWindowController::Attributes{VLPopOutWindowController::kResizableBit}),
      QSize(400, 300));
  EXPECT_THROW(VLPopOutWindowController(nullptr), KVException);
}

}  // namespace
}  // namespace velor
