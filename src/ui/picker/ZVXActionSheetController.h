#pragma once

#include "zuvero_export.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <utility>

class QMenu;
class QWidget;

/*!
    A choice of titled buttons, each with its own callback, shown as a
    popup menu: a destructive button first, then up to ten other buttons in
    the order added, then the cancel button.

    The menu is built on demand and dropped whenever a button is added or
    removed. It pops up without blocking; once it is gone, the callbacks are
    dropped. Leaving it without a choice (Escape, a click elsewhere) counts
    as the cancel button.

    The menu's object name is "actionSheet"; its actions carry the titles.
*/
class ZUVERO_EXPORT ZVXActionSheetController : public QObject
{
    Q_OBJECT

public:
    using Block = std::function<void()>;

    //! More other buttons are kept but not shown, with a warning.
    static constexpr int MaximumOtherButtons = 10;

    explicit ZVXActionSheetController(QObject *parent = nullptr);
    ~ZVXActionSheetController() override;
    static ZVXActionSheetController *sheetController(QObject *parent = nullptr);
    static ZVXActionSheetController *sheetControllerWithTitle(const QString &title,
                                                              QObject *parent = nullptr);

    QString title() const { return m_title; }
    void setTitle(const QString &title);
    void setCancelButtonTitle(const QString &title, Block block = {});
    void setDestructiveButtonTitle(const QString &title, Block block = {});
    void addOtherButtonTitle(const QString &title, Block block = {});
    //! Removes the first other button titled \a title.
    void removeOtherButtonTitle(const QString &title);
    QStringList otherButtonTitles() const;

    /*!
        The menu, built when there is none: parented to \a parent for a new
        one. Logs a warning when more than MaximumOtherButtons other buttons
        were added; those are left out.
    */
    QMenu *actionSheet(QWidget *parent = nullptr);
    //! Pops the menu up at \a globalPosition, over \a parent's window.
    void showAt(const QPoint &globalPosition, QWidget *parent);
    //! Pops the menu up just above \a view, as from a button at the bottom of a window.
    void showFromView(QWidget *view);

    //! The index \a index of \a sheet was chosen; ignored unless \a sheet is the current menu.
    void clickedButtonAtIndex(QMenu *sheet, int index);
    //! Drops the callbacks, the buttons and the menu.
    void cleanupOAActionSheet();

    int cancelButtonIndex() const;
    int destructiveButtonIndex() const;
    int firstOtherButtonIndex() const;

Q_SIGNALS:
    //! The menu went away, after the chosen button's callback if any.
    void dismissed();

private:
    void dropActionSheet();
    void didDismiss();

    QString m_title;
    QString m_cancelTitle;
    Block m_cancelBlock;
    QString m_destructiveTitle;
    Block m_destructiveBlock;
    QList<std::pair<QString, Block>> m_others;
    QPointer<QMenu> m_actionSheet;
    bool m_chosen = false;
};
