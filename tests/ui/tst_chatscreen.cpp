#include "AttachmentsState.h"
#include "ZVXDevServerSuite.h"
#include "ZVXJSON.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroChatInputAccessoryView.h"
#include "ZuveroChatView.h"
#include "ZuveroChatViewController.h"
#include "ZuveroConnection.h"
#include "ZuveroNavigationController.h"

#include <QAbstractItemModel>
#include <QAccessible>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <limits>
#include <malloc.h>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

qint64 heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks + info.hblkhd);
}

// The chat windows on screen.
QList<ZuveroNavigationController *> shownScreens()
{
    QList<ZuveroNavigationController *> screens;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *screen = qobject_cast<ZuveroNavigationController *>(widget);
            screen && screen->isVisible())
            screens << screen;
    }
    return screens;
}

// The texts of the bubbles a screen's list shows, by the rows' own accessible texts.
QStringList shownTexts(ZuveroChatViewController *screen)
{
    QStringList texts;
    for (const auto &message : screen->chatView()->messages())
        texts << message->text().value_or(QString());
    return texts;
}

// Saves \a widget's picture as <name>.png in the folder ZUVERO_SCREENSHOT_DIR names, if any.
void keepScreenshot(QWidget *widget, const QString &name)
{
    const QString folder = qEnvironmentVariable("ZUVERO_SCREENSHOT_DIR");
    if (!folder.isEmpty())
        widget->grab().save(QDir(folder).filePath(name + u".png"_s));
}

// What a host does to change language: the default locale, the direction, and the
// LanguageChange that installing its own translator sends.
void switchLanguage(const QLocale &locale)
{
    QLocale::setDefault(locale);
    QGuiApplication::setLayoutDirection(locale.textDirection());
    QEvent change(QEvent::LanguageChange);
    QCoreApplication::sendEvent(QCoreApplication::instance(), &change);
    // Widgets hear of it through posted events.
    QCoreApplication::processEvents();
}

// The list's rows as a screen reader reads them.
QStringList accessibleRows(QListView *list)
{
    QAccessibleInterface *node = QAccessible::queryAccessibleInterface(list);
    QStringList rows;
    for (int i = 0; node && i < node->childCount(); ++i)
        rows << node->child(i)->text(QAccessible::Name);
    return rows;
}

} // namespace

class TestChatScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void screenIsConfiguredFromTheFacade();
    void typedMessageShowsBeforeTheServerAnswers();
    void pickedPictureIsSentAsItsFile();
    void visibleScreenHoldsTheUnreadCountBack();
    void switchingUsersShowsOnlyTheirMessages();
    void pushOpensTheChat();
    void openedAndClosedManyTimes();
    void languageSwitchesLive();

private:
    //! A facade of the server for \a user, registered.
    std::unique_ptr<Zuvero> facade(const QString &user);

    ZVXDevServerSuite m_suite;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
};

void TestChatScreen::initTestCase()
{
    QVERIFY(m_suite.start());
}

void TestChatScreen::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    QVERIFY(m_suite.reset());
}

void TestChatScreen::cleanup()
{
    for (ZuveroNavigationController *screen : shownScreens())
        screen->close();
    QTRY_VERIFY(shownScreens().isEmpty());
    m_clock.reset();
    m_defaults.reset();
}

std::unique_ptr<Zuvero> TestChatScreen::facade(const QString &user)
{
    auto zuvero = m_suite.facade(user);
    if (!ZVXDevServerSuite::registered(zuvero.get()))
        qWarning("the facade did not register");
    return zuvero;
}

void TestChatScreen::screenIsConfiguredFromTheFacade()
{
    auto zuvero = facade(u"configured"_s);
    zuvero->appearance().navigationBarColor = QColor(0x12, 0x34, 0x56);
    std::unique_ptr<QWidget> made(zuvero->chatViewController());
    auto *navigation = qobject_cast<ZuveroNavigationController *>(made.get());
    QVERIFY(navigation);
    auto *screen = qobject_cast<ZuveroChatViewController *>(navigation->rootViewController());
    QVERIFY(screen);
    QCOMPARE(screen->apiInstance(), zuvero.get());
    // The localised title when the host sets none, else the host's.
    auto *title = navigation->findChild<QLabel *>(u"titleLabel"_s);
    QVERIFY(title && !title->text().isEmpty());
    QCOMPARE(
        navigation->findChild<QWidget *>(u"navigationBar"_s)->palette().color(QPalette::Window),
        QColor(0x12, 0x34, 0x56));
    zuvero->setTitle(u"Support"_s);
    made.reset(zuvero->chatViewController());
    QCOMPARE(made->findChild<QLabel *>(u"titleLabel"_s)->text(), u"Support"_s);
    // The fields a user reaches, by their names.
    for (const QString &name : {u"messages_list"_s, u"textView"_s, u"sendButton"_s,
                                u"attachmentButton"_s, u"doneButton"_s})
        QVERIFY2(made->findChild<QWidget *>(name), qPrintable(name));
    // The facade's background view sits behind the list.
    QWidget *background = zuvero->backgroundView();
    QVERIFY(background && made->isAncestorOf(background));

    // Done closes the window the facade presented.
    zuvero->displayChatView();
    QTRY_COMPARE(shownScreens().size(), 1);
    QPointer<ZuveroNavigationController> shown = shownScreens().first();
    QTest::mouseClick(shown->doneButton(), Qt::LeftButton);
    QTRY_VERIFY(!shown);
}

void TestChatScreen::typedMessageShowsBeforeTheServerAnswers()
{
    auto zuvero = facade(u"typist"_s);
    zuvero->displayChatView();
    QTRY_COMPARE(shownScreens().size(), 1);
    auto *screen
        = qobject_cast<ZuveroChatViewController *>(shownScreens().first()->rootViewController());
    auto *text = screen->findChild<QWidget *>(u"textView"_s);
    QVERIFY(text);
    // The server holds its answer back: the bubble must not wait for it.
    m_suite.admin().postJSON(u"/admin/faults"_s,
                             {{u"path"_s, u"/api/1.0/messages"_s},
                              {u"kind"_s, u"delay"_s},
                              {u"delayMs"_s, 1500},
                              {u"method"_s, u"POST"_s},
                              {u"count"_s, 1}});
    text->setFocus();
    QTest::keyClicks(text, u"Where is my parcel?"_s);
    QTest::keyClick(text, Qt::Key_Return);
    QVERIFY(screen->inputAccessoryView()->text().isEmpty());
    m_clock->advance(20ms);
    QCOMPARE(shownTexts(screen).last(), u"Where is my parcel?"_s);
    const ZuveroChatMessagePtr sent = screen->chatView()->messages().last();
    QVERIFY(sent->isUserMessage());
    // Then the server has it, once.
    QTRY_VERIFY_WITH_TIMEOUT(zuvero->cachedConversation()
                                 .value(ZuveroCachedConversationMessagesKey)
                                 .value<ZuveroChatMessageList>()
                                 .contains(sent),
                             10000);
    QCOMPARE(m_suite.admin()
                 .get(u"/admin/receipts"_s)
                 .json()
                 .value(u"receipts"_s)
                 .toMap()
                 .value(sent->uuid())
                 .toInt(),
             1);
}

void TestChatScreen::pickedPictureIsSentAsItsFile()
{
    QTemporaryDir files;
    const QString path = files.filePath(u"square.png"_s);
    QImage square(16, 16, QImage::Format_ARGB32);
    square.fill(Qt::transparent);
    QVERIFY(square.save(path, "PNG"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    AttachmentsState::setUsageDescriptions({{u"NSPhotoLibraryUsageDescription"_s, u"Pictures"_s}});
    const auto undeclare = qScopeGuard([] { AttachmentsState::setUsageDescriptions({}); });

    auto zuvero = facade(u"photographer"_s);
    zuvero->displayChatView();
    QTRY_COMPARE(shownScreens().size(), 1);
    auto *screen
        = qobject_cast<ZuveroChatViewController *>(shownScreens().first()->rootViewController());
    auto *attach = screen->findChild<QAbstractButton *>(u"attachmentButton"_s);
    QTRY_VERIFY(attach && attach->isVisible());
    QTest::mouseClick(attach, Qt::LeftButton);
    QMenu *sheet = nullptr;
    QTRY_VERIFY((sheet = qobject_cast<QMenu *>(QApplication::activePopupWidget())));
    QAction *choose = sheet->actions().first();
    QTest::mouseClick(sheet, Qt::LeftButton, {}, sheet->actionGeometry(choose).center());
    QFileDialog *dialog = nullptr;
    QTRY_VERIFY((dialog = screen->window()->findChild<QFileDialog *>(u"imagePickerDialog"_s)));
    dialog->findChild<QLineEdit *>(u"fileNameEdit"_s)->setText(path);
    QTest::mouseClick(
        dialog->findChild<QDialogButtonBox *>(u"buttonBox"_s)->button(QDialogButtonBox::Open),
        Qt::LeftButton);
    QTRY_VERIFY(!screen->inputAccessoryView()->image().isNull());

    // Sent as the file it was: a transparent PNG, not a re-encoded JPEG.
    QTest::mouseClick(screen->findChild<QAbstractButton *>(u"sendButton"_s), Qt::LeftButton);
    m_clock->advance(20ms);
    const ZuveroChatMessagePtr sent = screen->chatView()->messages().last();
    const auto attachments = sent->attachments().value_or(ZuveroChatAttachmentList());
    QCOMPARE(attachments.size(), 1);
    QCOMPARE(attachments.first()->contentType(), u"image/png"_s);
    QCOMPARE(attachments.first()->data(), bytes);
    QTRY_VERIFY_WITH_TIMEOUT(!sent->isOffline()
                                 && zuvero->cachedConversation()
                                        .value(ZuveroCachedConversationMessagesKey)
                                        .value<ZuveroChatMessageList>()
                                        .contains(sent),
                             10000);
}

void TestChatScreen::visibleScreenHoldsTheUnreadCountBack()
{
    auto zuvero = facade(u"reader"_s);
    bool appeared = false;
    auto observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatDidAppearNotification, zuvero.get(),
        [&](const ZuveroNotification &) { appeared = true; });
    zuvero->displayChatView();
    QTRY_VERIFY(appeared);
    // Once the screen's first reload has answered (with the server's count), nothing else will.
    auto *screen
        = qobject_cast<ZuveroChatViewController *>(shownScreens().first()->rootViewController());
    QTRY_VERIFY(!shownTexts(screen).isEmpty());
    const qint64 shown = zuvero->unreadCount();
    zuvero->updateUnreadCount(shown + 2);
    QCOMPARE(zuvero->unreadCount(), shown);
    // Gone, even without a word: the count held back applies.
    delete shownScreens().first();
    QCOMPARE(zuvero->unreadCount(), shown + 2);
}

void TestChatScreen::switchingUsersShowsOnlyTheirMessages()
{
    const QString stamp = QString::number(QDateTime::currentMSecsSinceEpoch());
    auto zuvero = facade(u"first-"_s + stamp);
    m_suite.admin().agentReply(m_suite.conversationId(zuvero.get()), u"For the first user only"_s);
    zuvero->displayChatView();
    QTRY_COMPARE(shownScreens().size(), 1);
    auto *screen
        = qobject_cast<ZuveroChatViewController *>(shownScreens().first()->rootViewController());
    QTRY_VERIFY(shownTexts(screen).contains(u"For the first user only"_s));
    shownScreens().first()->close();
    QTRY_VERIFY(shownScreens().isEmpty());

    zuvero->setUserIdentifier(u"second-"_s + stamp);
    zuvero->displayChatView();
    QTRY_COMPARE(shownScreens().size(), 1);
    screen = qobject_cast<ZuveroChatViewController *>(shownScreens().first()->rootViewController());
    QVERIFY(!shownTexts(screen).contains(u"For the first user only"_s));
    // Not after the screen has asked the server either.
    QTRY_VERIFY(!shownTexts(screen).isEmpty()); // the server's welcome
    QVERIFY(!shownTexts(screen).contains(u"For the first user only"_s));
}

void TestChatScreen::pushOpensTheChat()
{
    auto zuvero = facade(u"pushed"_s);
    // Within two seconds of the start, a push is the tap that opened the application.
    QVERIFY(zuvero->consumeReceivedRemoteNotification(
        ZVXJSON::parse(QByteArray(R"({"aps": {"badge": 2, "alert": "Hi"},)"
                                  R"( "appdata": {"zuvero": "1.5", "t": "m", "uuid": "p1"}})"))
            .value_or(QVariant())
            .toMap()));
    QTRY_COMPARE(shownScreens().size(), 1);
}

void TestChatScreen::openedAndClosedManyTimes()
{
    auto zuvero = facade(u"visitor"_s);
    const auto openAndClose = [&] {
        zuvero->displayChatView();
        QTRY_COMPARE(shownScreens().size(), 1);
        QPointer<ZuveroNavigationController> screen = shownScreens().first();
        screen->close();
        QTRY_VERIFY(!screen);
    };
    // The first openings fill caches that stay (fonts, styles, icons).
    for (int i = 0; i < 5; ++i)
        openAndClose();
    // Requests leave their time-outs armed for a while after they end.
    const auto settledHeap = [this] {
        m_clock->advance(301s);
        QCoreApplication::processEvents();
        return heapInUse();
    };
    // Two batches: what every opening leaves behind grows both by the same amount, while the
    // heap's own noise (pools and caches of Qt's network and style code, several hundred KiB
    // on a loaded machine) rarely lands high twice. Half a megabyte per fifty openings is
    // 10 KiB each, less than any screen's widgets.
    qint64 least = std::numeric_limits<qint64>::max();
    qint64 before = settledHeap();
    for (int batch = 0; batch < 2; ++batch) {
        for (int i = 0; i < 50; ++i)
            openAndClose();
        const qint64 after = settledHeap();
        qInfo("heap after 50 openings: %+lld KiB", (after - before) / 1024);
        least = std::min(least, after - before);
        before = after;
    }
    QVERIFY2(least <= 512 * 1024, qPrintable(QString::number(least / 1024)));
}

void TestChatScreen::languageSwitchesLive()
{
    const auto english = qScopeGuard([] { switchLanguage(QLocale(QLocale::English)); });
    auto zuvero = facade(u"polyglot"_s);
    // Three days of hourly history: date rows, and more than one page of it.
    const QDateTime start = QDateTime::currentDateTimeUtc().addDays(-3);
    QVERIFY(m_suite.admin()
                .postJSON(u"/admin/history"_s,
                          {{u"conversation"_s, m_suite.conversationId(zuvero.get())},
                           {u"count"_s, 72},
                           {u"from"_s, double(start.toSecsSinceEpoch())},
                           {u"step"_s, 3600}})
                .status
            == 200);
    zuvero->displayChatView();
    QTRY_COMPARE(shownScreens().size(), 1);
    ZuveroNavigationController *window = shownScreens().first();
    window->resize(420, 560);
    auto *screen = qobject_cast<ZuveroChatViewController *>(window->rootViewController());
    auto *list = screen->findChild<QListView *>(u"messages_list"_s);
    auto *send = screen->findChild<QToolButton *>(u"sendButton"_s);
    auto *title = window->findChild<QLabel *>(u"titleLabel"_s);
    QAccessible::setActive(true);
    QTRY_VERIFY(accessibleRows(list).contains(u"Load earlier messages"_s));
    QVERIFY(accessibleRows(list).join(u'|').contains(u"Archive: Message 72 of 72"_s));
    QCOMPARE(send->text(), u"Send"_s);

    struct Expected
    {
        QLocale locale;
        QString title, done, send, loadMore, agentRow;
        Qt::LayoutDirection direction;
    };
    const Expected languages[] = {
        {QLocale(QLocale::French, QLocale::France), u"Assistance"_s, u"Terminé"_s, u"Envoyer"_s,
         u"Afficher les messages précédents"_s, u"Archive\u00a0: Message"_s, Qt::LeftToRight},
        {QLocale(QLocale::Arabic, QLocale::Egypt), u"الدعم"_s, u"تم"_s, u"إرسال"_s,
         u"عرض الرسائل السابقة"_s, u" of 72، "_s, Qt::RightToLeft},
    };
    for (const Expected &language : languages) {
        const QString name = language.locale.name();
        switchLanguage(language.locale);
        QCOMPARE(title->text(), language.title);
        QCOMPARE(window->doneButton()->text(), language.done);
        QCOMPARE(window->doneButton()->accessibleName(), language.done);
        QCOMPARE(send->text(), language.send);
        QCOMPARE(send->accessibleName(), language.send);
        QCOMPARE(screen->layoutDirection(), language.direction);
        QCOMPARE(send->layoutDirection(), language.direction);
        // The rows read in the new language: the load-more row, dates and who wrote.
        const QStringList rows = accessibleRows(list);
        QCOMPARE(rows.first(), language.loadMore);
        // The first message shown opens with a date row.
        const QDateTime first = screen->chatView()->messages().first()->date().toLocalTime();
        const QString firstDate = language.locale.toString(first.date(), QLocale::ShortFormat)
            + u' ' + language.locale.toString(first.time(), QLocale::ShortFormat);
        QVERIFY2(rows.at(1) == firstDate, qPrintable(rows.at(1) + u" ≠ "_s + firstDate));
        QVERIFY2(rows.filter(language.agentRow).size() >= 20, qPrintable(name));
        QVERIFY(!rows.join(u'|').contains(u"Load earlier"_s));
        // The user's bubbles stand on the trailing side: the input bar's send button too.
        const QPoint sendAt = send->mapTo(screen, QPoint(0, 0));
        QCOMPARE(sendAt.x() > screen->width() / 2, language.direction == Qt::LeftToRight);
        keepScreenshot(window, u"chat-screen-"_s + name);
        list->scrollToTop();
        keepScreenshot(window, u"chat-screen-top-"_s + name);
        list->scrollToBottom();
    }
}

QTEST_MAIN(TestChatScreen)
#include "tst_chatscreen.moc"
