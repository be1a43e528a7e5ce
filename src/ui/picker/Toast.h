#pragma once

#include "zuvero_export.h"

#include <QFrame>

class QLabel;

/*!
    A short notice with a title, a text and an OK button.

    It never blocks: it is a frameless window that takes no focus, shown
    over the bottom of the active window (or of the primary screen when the
    application has none), and a new notice replaces the one on screen
    instead of stacking on it. It deletes itself when closed.

    The object name is "toast"; its accessible name is the title and its
    accessible description the text.
*/
class ZUVERO_EXPORT Toast final : public QFrame
{
    Q_OBJECT

public:
    //! Shows a notice that stays until its OK button is pressed or another notice replaces it.
    static Toast *display(const QString &title, const QString &text);
    //! Shows a notice that also closes by itself after \a seconds, counted in whole seconds,
    //! when that is at least one.
    static Toast *display(const QString &title, const QString &text, double seconds);

    //! The notice on screen, if any.
    static Toast *current();

    QString title() const;
    QString text() const;

private:
    Toast(const QString &title, const QString &text, QWidget *window);
    void place();

    QLabel *m_title = nullptr;
    QLabel *m_text = nullptr;
};
