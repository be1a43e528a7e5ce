#include "ZVXAlertView.h"

#include <QAbstractButton>
#include <QPushButton>

ZVXAlertView::ZVXAlertView(const QString &title, const QString &message,
                           const QString &cancelButtonTitle, const QStringList &otherButtonTitles,
                           QWidget *parent)
    : QMessageBox(parent)
{
    setObjectName(QStringLiteral("alertView"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(title);
    setText(title);
    setInformativeText(message);
    setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    if (!cancelButtonTitle.isEmpty()) {
        QPushButton *cancel = addButton(cancelButtonTitle, QMessageBox::RejectRole);
        setEscapeButton(cancel);
        m_cancelIndex = 0;
        m_buttons << cancel;
    }
    for (const QString &other : otherButtonTitles)
        m_buttons << addButton(other, QMessageBox::AcceptRole);
    // Without buttons the user could not close it.
    if (m_buttons.isEmpty())
        m_buttons << addButton(QMessageBox::Ok);
}

QString ZVXAlertView::buttonTitleAtIndex(int index) const
{
    return index >= 0 && index < m_buttons.size() ? m_buttons.at(index)->text() : QString();
}

void ZVXAlertView::showWithBlock(Block block)
{
    m_block = std::move(block);
    connect(this, &QMessageBox::buttonClicked, this, [this](QAbstractButton *button) {
        const int index = int(m_buttons.indexOf(button));
        if (m_block)
            std::exchange(m_block, {})(this, index);
    });
    // Closed another way: reported as the cancel button, so the caller always hears back.
    connect(this, &QDialog::finished, this, [this] {
        if (m_block)
            std::exchange(m_block, {})(this, m_cancelIndex);
    });
    open();
}
