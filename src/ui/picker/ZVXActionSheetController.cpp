#include "ZVXActionSheetController.h"

#include "ZVXLogging.h"
#include "ZVXMainThread.h"

#include <QAction>
#include <QMenu>

namespace {

QString describe(const QObject *object)
{
    if (!object)
        return QStringLiteral("(null)");
    return QStringLiteral("%1(0x%2)")
        .arg(QString::fromLatin1(object->metaObject()->className()))
        .arg(quintptr(object), 0, 16);
}

} // namespace

ZVXActionSheetController::ZVXActionSheetController(QObject *parent)
    : QObject(parent)
{ }

ZVXActionSheetController::~ZVXActionSheetController()
{
    // A menu still up belongs to a widget that outlives us: take it down with its callbacks.
    if (m_actionSheet)
        m_actionSheet->deleteLater();
}

ZVXActionSheetController *ZVXActionSheetController::sheetController(QObject *parent)
{
    return new ZVXActionSheetController(parent);
}

ZVXActionSheetController *ZVXActionSheetController::sheetControllerWithTitle(const QString &title,
                                                                             QObject *parent)
{
    auto *controller = new ZVXActionSheetController(parent);
    controller->setTitle(title);
    return controller;
}

void ZVXActionSheetController::setTitle(const QString &title)
{
    m_title = title;
    dropActionSheet();
}

void ZVXActionSheetController::setCancelButtonTitle(const QString &title, Block block)
{
    m_cancelTitle = title;
    m_cancelBlock = std::move(block);
    dropActionSheet();
}

void ZVXActionSheetController::setDestructiveButtonTitle(const QString &title, Block block)
{
    m_destructiveTitle = title;
    m_destructiveBlock = std::move(block);
    dropActionSheet();
}

void ZVXActionSheetController::addOtherButtonTitle(const QString &title, Block block)
{
    m_others.append({title, std::move(block)});
    dropActionSheet();
}

void ZVXActionSheetController::removeOtherButtonTitle(const QString &title)
{
    for (qsizetype i = 0; i < m_others.size(); ++i) {
        if (m_others.at(i).first == title) {
            m_others.removeAt(i);
            dropActionSheet();
            return;
        }
    }
}

QStringList ZVXActionSheetController::otherButtonTitles() const
{
    QStringList titles;
    for (const auto &[title, block] : m_others)
        titles << title;
    return titles;
}

int ZVXActionSheetController::destructiveButtonIndex() const
{
    return m_destructiveTitle.isEmpty() ? -1 : 0;
}

int ZVXActionSheetController::firstOtherButtonIndex() const
{
    return m_destructiveTitle.isEmpty() ? 0 : 1;
}

int ZVXActionSheetController::cancelButtonIndex() const
{
    if (m_cancelTitle.isEmpty())
        return -1;
    return firstOtherButtonIndex() + int(std::min<qsizetype>(m_others.size(), MaximumOtherButtons));
}

QMenu *ZVXActionSheetController::actionSheet(QWidget *parent)
{
    if (m_actionSheet)
        return m_actionSheet;
    auto *sheet = new QMenu(parent);
    sheet->setObjectName(QStringLiteral("actionSheet"));
    // Untitled, a menu is known by the control that opened it ("Add Attachment").
    sheet->setAccessibleName(!m_title.isEmpty() ? m_title
                                 : parent       ? parent->accessibleName()
                                                : QString());
    if (!m_title.isEmpty())
        sheet->addSection(m_title);

    const auto addButton = [this, sheet](const QString &title, int index) {
        QAction *action = sheet->addAction(title);
        const QPointer<QMenu> from(sheet);
        connect(action, &QAction::triggered, this,
                [this, from, index] { clickedButtonAtIndex(from, index); });
        return action;
    };
    if (!m_destructiveTitle.isEmpty())
        addButton(m_destructiveTitle, destructiveButtonIndex());
    if (m_others.size() > MaximumOtherButtons)
        ZVXLog(QStringLiteral("WARNING: ZVXActionSheetController supports up to %1 other button "
                              "titles! Other buttons will be ignored.")
                   .arg(MaximumOtherButtons));
    const int shown = int(std::min<qsizetype>(m_others.size(), MaximumOtherButtons));
    for (int i = 0; i < shown; ++i)
        addButton(m_others.at(i).first, firstOtherButtonIndex() + i);
    if (!m_cancelTitle.isEmpty()) {
        sheet->addSeparator();
        addButton(m_cancelTitle, cancelButtonIndex());
    }

    m_chosen = false;
    // The chosen action fires after the menu starts hiding: settle once both have happened.
    connect(sheet, &QMenu::aboutToHide, this, [this, from = QPointer<QMenu>(sheet)] {
        ZVXMainThread::async(
            [this, from] {
                if (from && from == m_actionSheet)
                    didDismiss();
            },
            this);
    });
    m_actionSheet = sheet;
    return sheet;
}

void ZVXActionSheetController::showAt(const QPoint &globalPosition, QWidget *parent)
{
    actionSheet(parent)->popup(globalPosition);
}

void ZVXActionSheetController::showFromView(QWidget *view)
{
    QMenu *sheet = actionSheet(view);
    const QPoint corner = view->mapToGlobal(QPoint(0, 0));
    sheet->popup(QPoint(corner.x(), corner.y() - sheet->sizeHint().height()));
}

void ZVXActionSheetController::clickedButtonAtIndex(QMenu *sheet, int index)
{
    if (!sheet || sheet != m_actionSheet) {
        ZVXLog(
            QStringLiteral("ZVXActionSheetController: actionSheet:clickedButtonAtIndex: was sent "
                           "by %1 which is not a current actionSheet (%2). Ignoring.")
                .arg(describe(sheet), describe(m_actionSheet)));
        return;
    }
    m_chosen = true;
    // Copied: a callback may change the buttons, and with them what it is stored in.
    Block block;
    if (index >= 0 && index == destructiveButtonIndex())
        block = m_destructiveBlock;
    else if (index >= 0 && index == cancelButtonIndex())
        block = m_cancelBlock;
    else if (const int other = index - firstOtherButtonIndex();
             other >= 0 && other < std::min<qsizetype>(m_others.size(), MaximumOtherButtons))
        block = m_others.at(other).second;
    if (block)
        block();
}

void ZVXActionSheetController::didDismiss()
{
    if (!m_chosen && m_cancelBlock) {
        const Block cancel = m_cancelBlock;
        cancel();
    }
    cleanupOAActionSheet();
    Q_EMIT dismissed();
}

void ZVXActionSheetController::cleanupOAActionSheet()
{
    m_cancelBlock = {};
    m_destructiveBlock = {};
    m_others.clear();
    dropActionSheet();
}

void ZVXActionSheetController::dropActionSheet()
{
    if (!m_actionSheet)
        return;
    QMenu *sheet = m_actionSheet;
    m_actionSheet = nullptr;
    sheet->hide();
    sheet->deleteLater();
}
