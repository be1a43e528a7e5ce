#pragma once

//! \file
//! The chat window: a title bar over a stack of screens.

#include "zuvero_export.h"

#include <QPointer>
#include <QWidget>

class QLabel;
class QPushButton;
class QStackedWidget;

/*!
    The chat screen's container: a title bar over a stack of screens, the
    chat at its root and the viewers pushed over it.

    The bar ("navigationBar") shows the title of the screen on top (its
    windowTitle(), or the title view when one is set), a Back button
    ("backButton") while a screen is pushed over the root, and a Done button
    ("doneButton") that closes the window the container is in; a host that
    shows the container inside a window of its own hides the button or
    listens to doneClicked().
*/
class ZUVERO_EXPORT ZuveroNavigationController : public QWidget
{
    Q_OBJECT

public:
    //! A container whose root screen is \a root (owned from now on).
    explicit ZuveroNavigationController(QWidget *root, QWidget *parent = nullptr);
    ~ZuveroNavigationController() override;

    //! The first screen, which is never popped.
    QWidget *rootViewController() const;
    //! The screen on show.
    QWidget *topViewController() const;
    //! Shows \a screen over the current one (owned from now on).
    void pushViewController(QWidget *screen);
    //! Goes back to the screen under the top one, deleting the top one; not past the root.
    void popViewController();

    //! A widget in place of the title (not owned; null for the title text).
    void setTitleView(QWidget *view);
    //! The widget in place of the title; null when the title text shows.
    QWidget *titleView() const;

    /*!
        The bar's colours: \a barTint its background (else \a background),
        \a itemTint its buttons, \a title its title. An invalid colour keeps
        the style's own.
    */
    void setBarColors(const QColor &itemTint, const QColor &barTint, const QColor &background,
                      const QColor &title);

    //! The button that closes the window.
    QPushButton *doneButton() const;

Q_SIGNALS:
    //! Done was pressed; the window is closed after this.
    void doneClicked();

protected:
    //! Titles the Back and Done buttons again in a new language.
    void changeEvent(QEvent *event) override;

private:
    void updateBar();
    void retranslate();
    void focusInto(QWidget *screen);

    QWidget *m_bar = nullptr;
    QLabel *m_title = nullptr;
    QPushButton *m_back = nullptr;
    QPushButton *m_done = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_titleView = nullptr;
    //! For each screen under the top one, the widget that had the keyboard when it was covered.
    QList<QPointer<QWidget>> m_returnFocus;
};
