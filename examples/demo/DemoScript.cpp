#include "DemoScript.h"

#include "DemoArtwork.h"
#include "DemoBadgeButton.h"
#include "DemoHost.h"
#include "DemoLanguage.h"
#include "DemoPushStream.h"
#include "DemoShopWindow.h"

#include <Zuvero/Zuvero.h>
#include <Zuvero/ZuveroChatAttachmentViewController.h>
#include <Zuvero/ZuveroChatLocationViewController.h>
#include <Zuvero/ZuveroChatNotificationWindow.h>
#include <Zuvero/ZuveroChatViewItem.h>
#include <Zuvero/ZuveroNavigationController.h>

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QRegularExpression>

#include <cstdio>

namespace {

const QString FirstText = QStringLiteral("Hello! My order #1042 has not arrived yet.");
const QString PictureCaption = QStringLiteral("This is the lamp I ordered.");
const QString PlaceSearched = QStringLiteral("Paris");
const QString PushedQuestion = QStringLiteral("One more thing: do you deliver to Paris?");
} // namespace

DemoScript::DemoScript(DemoHost *host, DemoShopWindow *window, const QString &folder,
                       QObject *parent)
    : QObject(parent)
    , m_host(host)
    , m_window(window)
    , m_folder(folder)
{
    m_poll.setInterval(100);
    connect(&m_poll, &QTimer::timeout, this, &DemoScript::poll);
    connect(host, &DemoHost::registered, this, [this](bool success) {
        m_registered = success;
        if (!success)
            note(QStringLiteral("registration failed; trying again when the user changes"));
    });
    connect(host->pushStream(), &DemoPushStream::payloadReceived, this,
            [this](const QVariantMap &payload, bool consumed) {
                const QString text = payload.value(QStringLiteral("alert")).toString();
                note(QStringLiteral("push received (%1): %2")
                         .arg(consumed ? QStringLiteral("consumed by the library")
                                       : QStringLiteral("not for the library"),
                              text));
            });
}

bool DemoScript::start(QString *error)
{
    if (!QDir().mkpath(m_folder)) {
        *error = QStringLiteral("cannot make the folder %1").arg(m_folder);
        return false;
    }
    m_transcript.setFileName(QDir(m_folder).filePath(QStringLiteral("transcript.txt")));
    if (!m_transcript.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        *error = QStringLiteral("cannot write %1: %2")
                     .arg(m_transcript.fileName(), m_transcript.errorString());
        return false;
    }
    m_clock.start();
    plan();
    note(QStringLiteral("zuvero-demo scripted run; screenshots and this transcript in %1")
             .arg(QDir(m_folder).absolutePath()));
    next();
    m_poll.start();
    return true;
}

void DemoScript::plan()
{
    const auto isTop = [this](const char *className) {
        QWidget *top = topScreen();
        return top && top->inherits(className);
    };
    m_steps = {
        {QStringLiteral("the shop opens and the device registers"),
         {},
         [this] { return m_registered && m_window->isVisible() && settled(3); }},
        {QStringLiteral("open the chat with the support button"),
         [this] {
             note(QStringLiteral("first window %1 ms after the process started")
                      .arg(qApp->property("demoFirstWindowMs").toLongLong()));
             screenshot(QStringLiteral("01-shop"), m_window);
             noteMemory(QStringLiteral("with the shop only"));
             m_window->contactButton()->click();
         },
         [this] { return chat() && chat()->isVisible() && messageList() && settled(5); }},
        {QStringLiteral("send a text and read the answer"),
         [this] {
             screenshot(QStringLiteral("02-chat-open"), chat());
             auto *field = chat()->findChild<QWidget *>(QStringLiteral("textView"));
             field->setFocus();
             typeInto(field, FirstText);
             press(field, Qt::Key_Return);
         },
         [this] { return rowsOfKind(ZuveroChatViewItemKindAgentMessage) >= 1; }},
        {QStringLiteral("write a caption, paste a picture, send, read the answer"),
         [this] {
             // The caption first: a staged picture covers the field.
             auto *field = chat()->findChild<QWidget *>(QStringLiteral("textView"));
             field->setFocus();
             typeInto(field, PictureCaption);
             QGuiApplication::clipboard()->setImage(
                 demoLampPicture(QColor(0xd9, 0x8c, 0x2b), QSize(640, 480)));
             press(field, Qt::Key_V, Qt::ControlModifier);
             note(QStringLiteral("user pastes a picture of the lamp"));
             press(field, Qt::Key_Return);
         },
         [this] {
             return rowsOfKind(ZuveroChatViewItemKindUserMessageAttachment) >= 1
                 && rowsOfKind(ZuveroChatViewItemKindAgentMessage) >= 2 && settled(15);
         }},
        {QStringLiteral("close the chat; an answer pushed meanwhile shows as a banner"),
         [this] {
             screenshot(QStringLiteral("03-conversation"), chat());
             clickButton("doneButton");
             m_window->activateWindow();
             note(QStringLiteral("user (from the shop, chat closed): %1").arg(PushedQuestion));
             m_host->zuvero()->postMessage(PushedQuestion);
         },
         [this] { return banner() && settled(6); }},
        {QStringLiteral("tap the banner: the chat opens"),
         [this] {
             screenshotWithBanner(QStringLiteral("04-banner"));
             note(QStringLiteral("unread count on the support button: %1")
                      .arg(m_window->contactButton()->count()));
             QWidget *target = banner();
             const QPointF centre = QRectF(target->rect()).center();
             QMouseEvent press(QEvent::MouseButtonPress, centre, target->mapToGlobal(centre),
                               Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
             QMouseEvent release(QEvent::MouseButtonRelease, centre, target->mapToGlobal(centre),
                                 Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
             QApplication::sendEvent(target, &press);
             QApplication::sendEvent(target, &release);
         },
         [this] { return chat() && chat()->isVisible() && settled(8); }},
        {QStringLiteral("open the picture from its bubble"),
         [this] {
             screenshot(QStringLiteral("05-chat-from-banner"), chat());
             if (!openRowOfKind(ZuveroChatViewItemKindUserMessageAttachment))
                 fail(QStringLiteral("no picture in the conversation"));
         },
         [this, isTop] { return isTop("ZuveroChatAttachmentViewController") && settled(10); }},
        {QStringLiteral("open the attachment menu from the keyboard"),
         [this] {
             screenshot(QStringLiteral("06-picture"), chat());
             clickButton("backButton");
             auto *attach = chat()->findChild<QWidget *>(QStringLiteral("attachmentButton"));
             attach->setFocus();
             press(attach, Qt::Key_Space);
         },
         [] { return qobject_cast<QMenu *>(QApplication::activePopupWidget()) != nullptr; }},
        {QStringLiteral("choose to share a location"),
         [this] {
             auto *sheet = qobject_cast<QMenu *>(QApplication::activePopupWidget());
             const QString title
                 = Zuvero::localizeString(QStringLiteral("zuveroLocationButtonTitle"));
             for (QAction *action : sheet->actions()) {
                 if (action->text() == title)
                     sheet->setActiveAction(action);
             }
             note(QStringLiteral("user chooses \u201c%1\u201d").arg(title));
             press(sheet, Qt::Key_Return);
         },
         [this] { return locationPicker() && locationPicker()->isVisible() && settled(3); }},
        {QStringLiteral("search for a place"),
         [this] {
             auto *field = locationPicker()->findChild<QWidget *>(QStringLiteral("searchField"));
             field->setFocus();
             typeInto(field, PlaceSearched);
             press(field, Qt::Key_Return);
         },
         [this] {
             auto *results
                 = locationPicker()->findChild<QListWidget *>(QStringLiteral("searchResults"));
             return results && results->count() > 0 && settled(3);
         }},
        {QStringLiteral("pick the first place found and send it"),
         [this] {
             screenshot(QStringLiteral("07-location-search"), locationPicker());
             auto *field = locationPicker()->findChild<QWidget *>(QStringLiteral("searchField"));
             // Enter picks the highlighted place; the address under the pin follows.
             press(field, Qt::Key_Return);
         },
         [this] {
             auto *address = locationPicker()->findChild<QLabel *>(QStringLiteral("addressLabel"));
             return address && address->text().contains(PlaceSearched) && settled(3);
         }},
        {QStringLiteral("send the place"),
         [this] {
             screenshot(QStringLiteral("08-location-picked"), locationPicker());
             auto *address = locationPicker()->findChild<QLabel *>(QStringLiteral("addressLabel"));
             note(QStringLiteral("user sends the place: %1").arg(address->text()));
             press(locationPicker(), Qt::Key_Return);
         },
         [this] {
             return !locationPicker() && rowsOfKind(ZuveroChatViewItemKindUserMessageLocation) >= 1
                 && settled(3);
         }},
        {QStringLiteral("open the shared place from its bubble"),
         [this] {
             if (!openRowOfKind(ZuveroChatViewItemKindUserMessageLocation))
                 fail(QStringLiteral("no place in the conversation"));
         },
         [this, isTop] { return isTop("ZuveroChatLocationViewController") && settled(15); }},
        {QStringLiteral("switch to French"),
         [this] {
             screenshot(QStringLiteral("09-location"), chat());
             clickButton("backButton");
             DemoLanguage::apply(QStringLiteral("fr"));
         },
         [this] { return settled(5); }},
        {QStringLiteral("switch to Arabic"),
         [this] {
             screenshot(QStringLiteral("10-french-shop"), m_window);
             screenshot(QStringLiteral("11-french-chat"), chat());
             DemoLanguage::apply(QStringLiteral("ar"));
         },
         [this] { return settled(5); }},
        {QStringLiteral("back to English"),
         [this] {
             screenshot(QStringLiteral("12-arabic-shop"), m_window);
             screenshot(QStringLiteral("13-arabic-chat"), chat());
             DemoLanguage::apply(QStringLiteral("en"));
             noteMemory(QStringLiteral("with the chat open"));
             noteConversation();
         },
         [this] { return settled(1); }},
        {QStringLiteral("switch to another user from the Account menu"),
         [this] {
             // The dialog runs its own event loop; the script goes on inside it.
             QMetaObject::invokeMethod(m_window, &DemoShopWindow::askForUser, Qt::QueuedConnection);
         },
         [] { return QApplication::activeModalWidget() != nullptr; }},
        {QStringLiteral("enter the new identity"),
         [this] {
             QWidget *dialog = QApplication::activeModalWidget();
             const auto replace = [this, dialog](const char *field, const QString &text) {
                 auto *edit = dialog->findChild<QWidget *>(QLatin1String(field));
                 edit->setFocus();
                 press(edit, Qt::Key_A, Qt::ControlModifier);
                 typeInto(edit, text);
             };
             replace("userIdentifierField", QStringLiteral("second-user"));
             replace("userNameField", QStringLiteral("Sam"));
             m_registered = false;
             press(dialog->focusWidget(), Qt::Key_Return);
         },
         [this] { return m_registered && !chat() && !QApplication::activeModalWidget(); }},
        {QStringLiteral("the new user's chat is their own: empty"),
         [this] { m_window->contactButton()->click(); },
         [this] { return chat() && chat()->isVisible() && messageList() && settled(5); }},
    };
}

void DemoScript::next()
{
    if (m_failed)
        return;
    ++m_index;
    m_settleTicks = 0;
    m_stepStarted = m_clock.elapsed();
    if (m_index >= m_steps.size()) {
        m_poll.stop();
        screenshot(QStringLiteral("14-other-user-chat"), chat());
        const int messages = rowsOfKind(ZuveroChatViewItemKindUserMessage)
            + rowsOfKind(ZuveroChatViewItemKindAgentMessage);
        note(QStringLiteral("signed in as %1: %2 messages in the chat")
                 .arg(m_host->zuvero()->userName().value_or(QString()))
                 .arg(messages));
        note(QStringLiteral("done: %1 screenshots").arg(m_screenshots));
        Q_EMIT finished(true);
        return;
    }
    const Step &step = m_steps.at(m_index);
    note(QStringLiteral("step %1: %2").arg(m_index + 1).arg(step.name));
    if (step.act)
        step.act();
}

void DemoScript::poll()
{
    if (m_failed || m_index < 0 || m_index >= m_steps.size())
        return;
    if (m_steps.at(m_index).done()) {
        next();
        return;
    }
    if (m_clock.elapsed() - m_stepStarted > StepTimeoutSeconds * 1000)
        fail(QStringLiteral("\"%1\" did not happen within %2 s")
                 .arg(m_steps.at(m_index).name)
                 .arg(StepTimeoutSeconds));
}

bool DemoScript::settled(int ticks)
{
    return ++m_settleTicks >= ticks;
}

void DemoScript::note(const QString &line)
{
    const QString stamped
        = QStringLiteral("%1 s  %2").arg(m_clock.elapsed() / 1000.0, 7, 'f', 3).arg(line);
    m_transcript.write(stamped.toUtf8() + '\n');
    m_transcript.flush();
    std::fprintf(stdout, "%s\n", stamped.toUtf8().constData());
    std::fflush(stdout);
}

void DemoScript::fail(const QString &why)
{
    if (m_failed)
        return;
    note(QStringLiteral("FAILED: %1").arg(why));
    noteConversation();
    // What was on screen when it failed.
    screenshot(QStringLiteral("failed-shop"), m_window);
    if (chat())
        screenshot(QStringLiteral("failed-chat"), chat());
    if (locationPicker())
        screenshot(QStringLiteral("failed-location-picker"), locationPicker());
    m_failed = true;
    m_poll.stop();
    Q_EMIT finished(false);
}

void DemoScript::screenshot(const QString &name, QWidget *window)
{
    if (window)
        save(name, window->grab());
}

void DemoScript::screenshotWithBanner(const QString &name)
{
    // What the user sees: the shop with the banner over its top edge.
    QWidget *window = banner() ? banner()->window() : nullptr;
    QPixmap picture = m_window->grab();
    if (window) {
        QPainter painter(&picture);
        painter.drawPixmap(window->geometry().topLeft() - m_window->geometry().topLeft(),
                           window->grab());
    }
    save(name, picture);
}

void DemoScript::save(const QString &name, const QPixmap &picture)
{
    const QString path = QDir(m_folder).filePath(name + QStringLiteral(".png"));
    if (!picture.save(path)) {
        note(QStringLiteral("cannot write %1").arg(path));
        return;
    }
    ++m_screenshots;
    note(QStringLiteral("screenshot %1.png (%2 x %3)")
             .arg(name)
             .arg(picture.width())
             .arg(picture.height()));
}

void DemoScript::noteMemory(const QString &when)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    const QString text = QString::fromLatin1(status.readAll());
    const auto value = [&](const char *field) {
        const QRegularExpression pattern(
            QStringLiteral("^%1:\\s+(\\d+) kB$").arg(QLatin1String(field)),
            QRegularExpression::MultilineOption);
        return pattern.match(text).captured(1).toLongLong() / 1024.0;
    };
    note(QStringLiteral("memory %1: %2 MiB resident, %3 MiB at most")
             .arg(when)
             .arg(value("VmRSS"), 0, 'f', 1)
             .arg(value("VmHWM"), 0, 'f', 1));
}

void DemoScript::noteConversation()
{
    QAbstractItemView *list = messageList();
    if (!list)
        return;
    note(QStringLiteral("the conversation as the chat list reads it out:"));
    const QAbstractItemModel *model = list->model();
    for (int row = 0; row < model->rowCount(); ++row) {
        const QString text = model->index(row, 0).data(Qt::AccessibleTextRole).toString();
        if (!text.isEmpty())
            note(QStringLiteral("  | ") + text.simplified());
    }
}

QWidget *DemoScript::chat() const
{
    return m_host->chatWindow();
}

QAbstractItemView *DemoScript::messageList() const
{
    return chat() ? chat()->findChild<QAbstractItemView *>(QStringLiteral("messages_list"))
                  : nullptr;
}

int DemoScript::rowsOfKind(QLatin1String kind) const
{
    const QAbstractItemView *list = messageList();
    if (!list)
        return 0;
    const QAbstractItemModel *model = list->model();
    const int role = model->roleNames().key("kind", -1);
    int count = 0;
    for (int row = 0; row < model->rowCount(); ++row)
        count += model->index(row, 0).data(role).toString() == kind;
    return count;
}

bool DemoScript::openRowOfKind(QLatin1String kind)
{
    // As a keyboard user does: to the row, then Enter.
    QAbstractItemView *list = messageList();
    if (!list)
        return false;
    const QAbstractItemModel *model = list->model();
    const int role = model->roleNames().key("kind", -1);
    for (int row = model->rowCount() - 1; row >= 0; --row) {
        const QModelIndex index = model->index(row, 0);
        if (index.data(role).toString() != kind)
            continue;
        list->setFocus();
        list->setCurrentIndex(index);
        list->scrollTo(index);
        press(list, Qt::Key_Return);
        return true;
    }
    return false;
}

QWidget *DemoScript::banner() const
{
    for (QWidget *window : QApplication::topLevelWidgets()) {
        auto *notification = qobject_cast<ZuveroChatNotificationWindow *>(window);
        if (notification && notification->isVisible() && notification->presentedView())
            return notification->presentedView();
    }
    return nullptr;
}

QWidget *DemoScript::locationPicker() const
{
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (window->objectName() == QLatin1String("locationPicker") && window->isVisible())
            return window;
    }
    return nullptr;
}

QWidget *DemoScript::topScreen() const
{
    auto *navigation = qobject_cast<ZuveroNavigationController *>(chat());
    return navigation ? navigation->topViewController() : nullptr;
}

void DemoScript::typeInto(QWidget *widget, const QString &text)
{
    for (const QChar character : text) {
        QKeyEvent down(QEvent::KeyPress, 0, Qt::NoModifier, QString(character));
        QKeyEvent up(QEvent::KeyRelease, 0, Qt::NoModifier, QString(character));
        QApplication::sendEvent(widget, &down);
        QApplication::sendEvent(widget, &up);
    }
    note(QStringLiteral("user types: %1").arg(text));
}

void DemoScript::press(QWidget *widget, int key, Qt::KeyboardModifiers modifiers)
{
    QKeyEvent down(QEvent::KeyPress, key, modifiers);
    QKeyEvent up(QEvent::KeyRelease, key, modifiers);
    QApplication::sendEvent(widget, &down);
    QApplication::sendEvent(widget, &up);
}

void DemoScript::clickButton(const char *objectName)
{
    auto *button
        = chat() ? chat()->findChild<QAbstractButton *>(QLatin1String(objectName)) : nullptr;
    if (!button || !button->isVisible()) {
        fail(QStringLiteral("no %1 to click").arg(QLatin1String(objectName)));
        return;
    }
    button->click();
}
