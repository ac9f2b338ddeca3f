#pragma once

#include <QColor>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QString>
#include <QUrl>

#include <memory>

#include "ui/QmlEngineHost.h"

namespace tapekeep::test {

// One QML item shown in a window of its own, driven as a user would: clicks at an item's middle,
// keys to the focused item, and the colours the window really drew. The controllers the screen
// reads are provided to its engine, as the application provides them, before load().
class QuickScreen {
public:
    QuickScreen();
    ~QuickScreen();

    // Shows `object` (the caller's, outliving the screen) to QML as the singleton `name`.
    template <typename Type>
    void provide(const char* name, Type* object) {
        engine_->provide(name, object);
    }

    // Loads a file of the application's module, or QML text; null, with the errors, when it fails.
    QQuickItem* load(const QUrl& file);
    QQuickItem* loadText(const QByteArray& text);
    [[nodiscard]] QString errors() const { return errors_; }
    [[nodiscard]] QQuickItem* root() const { return root_.get(); }

    // The first item of that name below `within` (default: the root), depth first.
    [[nodiscard]] QQuickItem* find(const QString& name, QQuickItem* within = nullptr) const;

    void click(QQuickItem* target);
    // The left button held down over the target, and let go; click() is the two at once.
    void press(QQuickItem* target);
    void release(QQuickItem* target);
    // Focuses the target (which fails for a disabled one) and sends the key to the window.
    void pressKey(QQuickItem* target, Qt::Key key, const QString& text = {});
    void pressSpace(QQuickItem* target) { pressKey(target, Qt::Key_Space, QStringLiteral(" ")); }
    void typeText(const QString& text);
    // The colour drawn at the middle of an item, read back from the window's pixels.
    QColor drawnColour(QQuickItem* target);

private:
    QQuickItem* show(QObject* created);

    QQuickWindow window_;
    std::unique_ptr<QmlEngineHost> engine_;
    std::unique_ptr<QQuickItem> root_;
    QString errors_;
};

}  // namespace tapekeep::test
