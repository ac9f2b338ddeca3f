#include "QuickScreen.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QQmlComponent>

#include "GuiTestApplication.h"

namespace tapekeep::test {
namespace {

constexpr QSize windowSize(960, 720);

QQuickItem* findBelow(QQuickItem* item, const QString& name) {
    if (item->objectName() == name) return item;
    for (QQuickItem* child : item->childItems())
        if (QQuickItem* found = findBelow(child, name)) return found;
    return nullptr;
}

QPointF middleInScene(QQuickItem* item) {
    return item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
}

}  // namespace

QuickScreen::QuickScreen() : engine_(std::make_unique<QmlEngineHost>()) {
    window_.resize(windowSize);
}

QuickScreen::~QuickScreen() {
    root_.reset();  // the items go before the engine that made them
    engine_.reset();
}

QQuickItem* QuickScreen::load(const QUrl& file) {
    QQmlComponent component(engine_.get(), file);
    QObject* created = component.create();
    errors_ = component.errorString();
    return show(created);
}

QQuickItem* QuickScreen::loadText(const QByteArray& text) {
    QQmlComponent component(engine_.get());
    component.setData(text, QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/TestScreen.qml")));
    QObject* created = component.create();
    errors_ = component.errorString();
    return show(created);
}

QQuickItem* QuickScreen::show(QObject* created) {
    root_.reset(qobject_cast<QQuickItem*>(created));
    if (!root_) {
        delete created;
        return nullptr;
    }
    root_->setParentItem(window_.contentItem());
    root_->setSize(windowSize);
    window_.show();
    window_.requestActivate();
    if (!processEventsUntil([this] { return window_.isExposed(); })) return nullptr;
    return root_.get();
}

QQuickItem* QuickScreen::find(const QString& name, QQuickItem* within) const {
    QQuickItem* start = within != nullptr ? within : root_.get();
    return start != nullptr ? findBelow(start, name) : nullptr;
}

void QuickScreen::click(QQuickItem* target) {
    press(target);
    release(target);
}

void QuickScreen::press(QQuickItem* target) {
    if (target == nullptr) return;
    const QPointF scene = middleInScene(target);
    QMouseEvent event(QEvent::MouseButtonPress, scene, scene, window_.mapToGlobal(scene), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window_, &event);
}

void QuickScreen::release(QQuickItem* target) {
    if (target == nullptr) return;
    const QPointF scene = middleInScene(target);
    QMouseEvent event(QEvent::MouseButtonRelease, scene, scene, window_.mapToGlobal(scene), Qt::LeftButton,
                      Qt::NoButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window_, &event);
    QCoreApplication::processEvents();
}

void QuickScreen::pressKey(QQuickItem* target, Qt::Key key, const QString& text) {
    if (target == nullptr) return;
    target->forceActiveFocus(Qt::TabFocusReason);
    if (target->isEnabled()) processEventsUntil([target] { return target->hasActiveFocus(); });
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
    QCoreApplication::sendEvent(&window_, &press);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QCoreApplication::sendEvent(&window_, &release);
    QCoreApplication::processEvents();
}

void QuickScreen::typeText(const QString& text) {
    for (const QChar character : text) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(character));
        QCoreApplication::sendEvent(&window_, &press);
    }
    QCoreApplication::processEvents();
}

QColor QuickScreen::drawnColour(QQuickItem* target) {
    if (target == nullptr) return {};
    const QImage image = window_.grabWindow();
    return image.pixelColor((middleInScene(target) * window_.devicePixelRatio()).toPoint());
}

}  // namespace tapekeep::test
