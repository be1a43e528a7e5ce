#pragma once

#include "zuvero_export.h"

#include <QMessageBox>
#include <QStringList>

#include <functional>

class QAbstractButton;

/*!
    An alert whose buttons report their index to one callback.

    The cancel button, when there is one, is index 0 and the other buttons
    follow in order. It is window-modal over its parent's window without
    blocking the caller, and deletes itself once closed. Closing it without
    a button (Escape) counts as the cancel button.

    The object name is "alertView".
*/
class ZUVERO_EXPORT ZVXAlertView final : public QMessageBox
{
    Q_OBJECT

public:
    using Block = std::function<void(ZVXAlertView *alert, int buttonIndex)>;

    ZVXAlertView(const QString &title, const QString &message, const QString &cancelButtonTitle,
                 const QStringList &otherButtonTitles, QWidget *parent = nullptr);

    //! Shows the alert; \a block is given the index of the button that closes it.
    void showWithBlock(Block block);

    int cancelButtonIndex() const { return m_cancelIndex; }
    int numberOfButtons() const { return int(m_buttons.size()); }
    QString buttonTitleAtIndex(int index) const;

private:
    QList<QAbstractButton *> m_buttons;
    int m_cancelIndex = -1;
    Block m_block;
};
