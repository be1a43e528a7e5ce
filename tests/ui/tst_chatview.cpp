#include "ZVXChatCells.h"
#include "ZVXChatItemDelegate.h"
#include "ZVXConversationScript.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroChatView.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using ZVXConversationScript::conversation;

namespace {

constexpr QSize ViewSize(420, 600);

// The view on screen, at a fixed size, as a host shows it.
struct ShownView
{
    ZuveroChatView view;
    QListView *list = nullptr;

    explicit ShownView(const ZuveroChatMessageList &messages, bool hasMore = false)
    {
        view.resize(ViewSize);
        view.setHasMoreMessages(hasMore);
        view.setMessages(messages);
        view.show();
        list = view.scrollView();
        list->scrollToTop();
    }

    QAbstractItemModel *model() const { return list->model(); }
    int rowOfKind(QLatin1String kind, int occurrence = 0) const
    {
        for (int row = 0; row < model()->rowCount(); ++row) {
            if (model()->index(row, 0).data(Qt::UserRole + 1).toString() == kind
                && occurrence-- == 0)
                return row;
        }
        return -1;
    }
    QRect rowRect(int row) const { return list->visualRect(model()->index(row, 0)); }
    // A point well inside the bubble of \a row: bubbles hug the right edge for the
    // user and the left edge for the others (left to right).
    QPoint bubblePoint(int row, bool userSide) const
    {
        const QRect rect = rowRect(row);
        const int x = userSide ? rect.right() - ZVXChatItemDelegate::SideInset - 30
                               : rect.left() + ZVXChatItemDelegate::SideInset + 30;
        return QPoint(x, rect.bottom() - 14);
    }
};

// A picture being uploaded: stripes of 4 px shown at their own size, so that sharp
// pixels are black or white and blurred ones grey.
struct UploadingPicture
{
    ZuveroChatMessagePtr message = conversation(u"u0"_s).first();
    ShownView shown{withStripes(message)};

    static ZuveroChatMessageList withStripes(const ZuveroChatMessagePtr &message)
    {
        QImage stripes(240, 180, QImage::Format_RGB32);
        for (int x = 0; x < stripes.width(); ++x)
            for (int y = 0; y < stripes.height(); ++y)
                stripes.setPixel(x, y, (x / 4) % 2 ? 0xffffffff : 0xff000000);
        auto attachment = std::make_shared<ZuveroChatAttachment>();
        attachment->setContentType(u"image/png"_s);
        attachment->setImage(stripes);
        attachment->setImageSize(stripes.size());
        message->setAttachments(ZuveroChatAttachmentList{attachment});
        return {message};
    }

    // Whether the picture is sharp at \a fraction of its width from its leading edge.
    bool sharpAt(double fraction) const
    {
        const QRect row
            = shown.rowRect(shown.rowOfKind(ZuveroChatViewItemKindUserMessageAttachment));
        const QImage picture = shown.list->viewport()->grab().toImage();
        const int right = row.right() - ZVXChatItemDelegate::SideInset - 10;
        const int x = right - 240 + int(240 * fraction);
        // Neighbouring stripes differ a lot only where they are sharp.
        const int a = qGray(picture.pixel(x, row.center().y()));
        const int b = qGray(picture.pixel(x + 4, row.center().y()));
        return std::abs(a - b) > 150;
    }
};

// Records what the view tells its delegate.
struct Recorder
{
    std::shared_ptr<ZuveroChatViewDelegate> delegate = std::make_shared<ZuveroChatViewDelegate>();
    QStringList calls;

    Recorder()
    {
        delegate->chatViewLoadEarlierMessages
            = [this](ZuveroChatView *) { calls << u"loadEarlier"_s; };
        delegate->chatViewOpenAttachment
            = [this](ZuveroChatView *, const ZuveroChatAttachmentPtr &attachment) {
                  calls << u"attachment %1"_s.arg(attachment->uuid());
              };
        delegate->chatViewOpenLocation
            = [this](ZuveroChatView *, double lat, double lng, double radius) {
                  calls << u"location %1 %2 %3"_s.arg(lat).arg(lng).arg(radius);
              };
        delegate->chatViewDidOverscroll = [this](ZuveroChatView *) { calls << u"overscroll"_s; };
        delegate->chatViewDidScroll = [this](ZuveroChatView *) { calls << u"scroll"_s; };
    }
};

// Receives what QDesktopServices would hand to the desktop.
class UrlHandler : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url); }
};

QString clipboardText()
{
    const QMimeData *mime = QGuiApplication::clipboard()->mimeData();
    return mime ? QString::fromUtf8(mime->data(u"text/plain;charset=utf-8"_s)) : QString();
}

ZuveroChatMessagePtr textMessage(const QString &sender, const QString &text)
{
    auto message = std::make_shared<ZuveroChatMessage>();
    message->setUuid(u"bad"_s);
    message->setSender(sender);
    message->setDate(ZVXConversationScript::Start);
    message->setText(text);
    return message;
}

} // namespace

class TestChatView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void rowHeights_data();
    void rowHeights();
    void clickingABubbleTellsTheDelegate_data();
    void clickingABubbleTellsTheDelegate();
    void delegateIsHeldWeakly();
    void clickingALinkOpensIt();
    void enterOpensTheFocusedRow();
    void scrollingNearTheTopOverscrolls_data();
    void scrollingNearTheTopOverscrolls();
    void erroredIconAsksForTheToast();
    void uploadUncoversThePicture_data();
    void uploadUncoversThePicture();
    void uploadEasesForwardOnly();
    void newMessagesScrollOnlyAReaderAtTheBottom();
    void copyWithTheKeyboard();
    void copyFromTheContextMenu();
    void accessibleTreeNamesEveryRow();
    void appendingMeasuresOnlyNewRows();
    void heightsFollowTheRows();
    void widthChangeMeasuresAgain();
    void badDataIsBounded_data();
    void badDataIsBounded();
    void bubblesArePaintedInTheirColour_data();
    void bubblesArePaintedInTheirColour();
    void theHostsLookIsFollowed();
    void sizeLabels_data();
    void sizeLabels();
};

void TestChatView::init()
{
    QLocale::setDefault(QLocale::c());
    QGuiApplication::clipboard()->clear();
}

void TestChatView::rowHeights_data()
{
    QTest::addColumn<QString>("messages");
    QTest::addColumn<bool>("hasMore");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("minimum");
    QTest::addColumn<int>("maximum");

    QTest::newRow("load more") << u"u0t"_s << true
                               << ZuveroChatViewItemKindLoadMoreMessages.toString() << 40 << 40;
    QTest::newRow("date") << u"u0t"_s << false << ZuveroChatViewItemKindDate.toString() << 26 << 26;
    QTest::newRow("unsent") << u"u0to"_s << false
                            << ZuveroChatViewItemKindUserMessageUnsentLabel.toString() << 26 << 26;
    QTest::newRow("spacer") << u"u0t a30t"_s << false << ZuveroChatViewItemKindSpacer.toString()
                            << 10 << 10;
    // One line of 17 px text within the bubble's insets.
    QTest::newRow("user text") << u"u0t"_s << false << ZuveroChatViewItemKindUserMessage.toString()
                               << 24 << 60;
    // The agent's name stands above the bubble.
    QTest::newRow("agent text") << u"a0t"_s << false
                                << ZuveroChatViewItemKindAgentMessage.toString() << 40 << 80;
    QTest::newRow("system text") << u"s0t"_s << false
                                 << ZuveroChatViewItemKindSystemMessage.toString() << 24 << 60;
    QTest::newRow("location") << u"u0l"_s << false
                              << ZuveroChatViewItemKindUserMessageLocation.toString() << 140 << 140;
    // A file of no known type is shown as a document: icon, name and size.
    QTest::newRow("file") << u"u0p"_s << false
                          << ZuveroChatViewItemKindUserMessageAttachment.toString() << 64 << 64;
}

void TestChatView::rowHeights()
{
    QFETCH(QString, messages);
    QFETCH(bool, hasMore);
    QFETCH(QString, kind);
    QFETCH(int, minimum);
    QFETCH(int, maximum);

    ShownView shown(conversation(messages), hasMore);
    const QByteArray rowKind = kind.toLatin1();
    const int row = shown.rowOfKind(QLatin1String(rowKind));
    QVERIFY(row >= 0);
    const int height = shown.rowRect(row).height();
    QVERIFY2(height >= minimum && height <= maximum, qPrintable(QString::number(height)));
}

void TestChatView::clickingABubbleTellsTheDelegate_data()
{
    QTest::addColumn<QString>("messages");
    QTest::addColumn<bool>("hasMore");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("occurrence");
    QTest::addColumn<bool>("userSide");
    QTest::addColumn<QString>("call");

    QTest::newRow("user picture") << u"u0p"_s << false
                                  << ZuveroChatViewItemKindUserMessageAttachment.toString() << 0
                                  << true << u"attachment m0a0"_s;
    QTest::newRow("agent's second picture")
        << u"a0pp"_s << false << ZuveroChatViewItemKindAgentMessageAttachment.toString() << 1
        << false << u"attachment m0a1"_s;
    QTest::newRow("user location")
        << u"u0l"_s << false << ZuveroChatViewItemKindUserMessageLocation.toString() << 0 << true
        << u"location 48.85 2.29 2000"_s;
    QTest::newRow("agent location")
        << u"a0l"_s << false << ZuveroChatViewItemKindAgentMessageLocation.toString() << 0 << false
        << u"location 48.85 2.29 2000"_s;
    QTest::newRow("text opens nothing")
        << u"u0t"_s << false << ZuveroChatViewItemKindUserMessage.toString() << 0 << true
        << QString();
    QTest::newRow("load more") << u"u0t"_s << true
                               << ZuveroChatViewItemKindLoadMoreMessages.toString() << 0 << true
                               << u"loadEarlier"_s;
}

void TestChatView::clickingABubbleTellsTheDelegate()
{
    QFETCH(QString, messages);
    QFETCH(bool, hasMore);
    QFETCH(QString, kind);
    QFETCH(int, occurrence);
    QFETCH(bool, userSide);
    QFETCH(QString, call);

    ShownView shown(conversation(messages), hasMore);
    Recorder recorder;
    shown.view.setDelegate(recorder.delegate);
    const QByteArray rowKind = kind.toLatin1();
    const int row = shown.rowOfKind(QLatin1String(rowKind), occurrence);
    QVERIFY(row >= 0);
    const QPoint point = kind == ZuveroChatViewItemKindLoadMoreMessages
        ? shown.rowRect(row).center()
        : shown.bubblePoint(row, userSide);
    QTest::mouseClick(shown.list->viewport(), Qt::LeftButton, {}, point);
    QCOMPARE(recorder.calls, call.isEmpty() ? QStringList() : QStringList{call});
}

void TestChatView::enterOpensTheFocusedRow()
{
    // Rows: load more, date, the user's text, its location, its picture.
    ShownView shown(conversation(u"u0tlp"_s), true);
    Recorder recorder;
    shown.view.setDelegate(recorder.delegate);
    shown.list->setFocus();
    QTest::keyClick(shown.list, Qt::Key_Home);
    for (int row = 0; row < shown.model()->rowCount(); ++row) {
        QTest::keyClick(shown.list, row % 2 ? Qt::Key_Space : Qt::Key_Return);
        QTest::keyClick(shown.list, Qt::Key_Down);
    }
    QCOMPARE(recorder.calls,
             (QStringList{u"loadEarlier"_s, u"location 48.85 2.29 2000"_s, u"attachment m0a0"_s}));
}

void TestChatView::clickingALinkOpensIt()
{
    UrlHandler handler;
    QDesktopServices::setUrlHandler(u"https"_s, &handler, "open");
    ZuveroChatMessageList messages = conversation(u"u0t a10t"_s);
    messages[0]->setText(u"https://example.com/faq/delivery"_s);
    messages[1]->setText(u"https://example.com/faq/returns"_s);
    ShownView shown(messages);
    // Inside the text, past the bubble's inset on the tail's side (28 px).
    const QRect user = shown.rowRect(shown.rowOfKind(ZuveroChatViewItemKindUserMessage));
    QTest::mouseClick(
        shown.list->viewport(), Qt::LeftButton, {},
        QPoint(user.right() - ZVXChatItemDelegate::SideInset - 60, user.center().y()));
    const QRect agent = shown.rowRect(shown.rowOfKind(ZuveroChatViewItemKindAgentMessage));
    QTest::mouseClick(
        shown.list->viewport(), Qt::LeftButton, {},
        QPoint(agent.left() + ZVXChatItemDelegate::SideInset + 60, agent.bottom() - 18));
    QDesktopServices::unsetUrlHandler(u"https"_s);
    // The pointer shows what a click would open.
    QTest::mouseMove(
        shown.list->viewport(),
        QPoint(agent.left() + ZVXChatItemDelegate::SideInset + 60, agent.bottom() - 18));
    QCOMPARE(shown.list->viewport()->cursor().shape(), Qt::PointingHandCursor);
    QTest::mouseMove(shown.list->viewport(), QPoint(agent.center().x(), agent.top() + 1));
    QCOMPARE(shown.list->viewport()->cursor().shape(), Qt::ArrowCursor);
    QCOMPARE(handler.opened,
             (QList<QUrl>{QUrl(u"https://example.com/faq/delivery"_s),
                          QUrl(u"https://example.com/faq/returns"_s)}));
}

void TestChatView::delegateIsHeldWeakly()
{
    ShownView shown(conversation(u"u0t"_s), true);
    int calls = 0;
    {
        auto delegate = std::make_shared<ZuveroChatViewDelegate>();
        delegate->chatViewLoadEarlierMessages = [&calls](ZuveroChatView *) { ++calls; };
        shown.view.setDelegate(delegate);
        QTest::mouseClick(shown.list->viewport(), Qt::LeftButton, {}, shown.rowRect(0).center());
        QCOMPARE(calls, 1);
    }
    // Gone: the view keeps no delegate alive and calls none.
    shown.view.setMessages(shown.view.messages());
    QTest::mouseClick(shown.list->viewport(), Qt::LeftButton, {}, shown.rowRect(0).center());
    QCOMPARE(calls, 1);
}

void TestChatView::scrollingNearTheTopOverscrolls_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<QStringList>("calls");

    QTest::newRow("top") << 0 << QStringList{u"overscroll"_s, u"scroll"_s};
    QTest::newRow("39 px") << 39 << QStringList{u"overscroll"_s, u"scroll"_s};
    QTest::newRow("40 px") << 40 << QStringList{u"scroll"_s};
    QTest::newRow("far down") << 2000 << QStringList{u"scroll"_s};
}

void TestChatView::scrollingNearTheTopOverscrolls()
{
    QFETCH(int, offset);
    QFETCH(QStringList, calls);

    QString words;
    for (int i = 0; i < 200; ++i)
        words += u"u%1t a%2t "_s.arg(i * 20).arg(i * 20 + 10);
    ShownView shown(conversation(words.trimmed()));
    shown.view.scrollToLastMessageAnimated(false);
    Recorder recorder;
    shown.view.setDelegate(recorder.delegate);
    // Dragging the scroll bar's handle.
    shown.list->verticalScrollBar()->setValue(offset);
    QCOMPARE(recorder.calls, calls);
}

void TestChatView::erroredIconAsksForTheToast()
{
    ZuveroChatMessageList messages = conversation(u"u0t u10t"_s);
    messages[1]->setIsErrored(true);
    ShownView shown(messages);
    QSignalSpy toast(&shown.view, &ZuveroChatView::erroredMessageClicked);
    // The icon stands just before the user's last bubble; find it along the row's middle.
    const int row = shown.rowOfKind(ZuveroChatViewItemKindUserMessage, 1);
    const QRect rect = shown.rowRect(row);
    const QImage picture = shown.list->viewport()->grab().toImage();
    const QColor red = ZuveroChatBaseMessageCell::errorIconColor(ZVXCellStyle());
    int iconX = -1;
    for (int x = rect.left(); x < rect.right() && iconX < 0; ++x) {
        if (picture.pixelColor(x, rect.center().y()).rgb() == red.rgb())
            iconX = x + 3;
    }
    QVERIFY2(iconX >= 0, "no icon painted");
    QTest::mouseClick(shown.list->viewport(), Qt::LeftButton, {}, QPoint(iconX, rect.center().y()));
    QCOMPARE(toast.size(), 1);
    QCOMPARE(toast.first().first().value<ZuveroChatMessagePtr>(), messages[1]);

    // The message that did not fail has no icon to click.
    const QRect first = shown.rowRect(shown.rowOfKind(ZuveroChatViewItemKindUserMessage));
    QTest::mouseClick(shown.list->viewport(), Qt::LeftButton, {},
                      QPoint(iconX, first.center().y()));
    QCOMPARE(toast.size(), 1);
}

void TestChatView::uploadUncoversThePicture_data()
{
    QTest::addColumn<QList<double>>("progresses");
    QTest::addColumn<bool>("leadingSharp");
    QTest::addColumn<bool>("trailingSharp");

    QTest::newRow("starting") << QList<double>{0.0} << false << false;
    QTest::newRow("half way") << QList<double>{0.5} << true << false;
    QTest::newRow("done") << QList<double>{0.5, 1.0} << true << true;
    // Progress that goes back is shown at once.
    QTest::newRow("0.4 after 0.6") << QList<double>{0.95, 0.6, 0.4, 0.05} << false << false;
}

void TestChatView::uploadUncoversThePicture()
{
    QFETCH(QList<double>, progresses);
    QFETCH(bool, leadingSharp);
    QFETCH(bool, trailingSharp);

    UploadingPicture upload;
    for (double progress : progresses)
        upload.shown.view.setUploadProgress(progress, upload.message);
    QCOMPARE(upload.sharpAt(0.1), leadingSharp);
    QCOMPARE(upload.sharpAt(0.9), trailingSharp);
}

void TestChatView::uploadEasesForwardOnly()
{
    ZVXManualClock clock;
    UploadingPicture upload;
    ZuveroChatView &view = upload.shown.view;
    view.setUploadProgress(0.1, upload.message, true);
    QVERIFY(!upload.sharpAt(0.5));

    view.setUploadProgress(0.9, upload.message, true);
    QVERIFY(!upload.sharpAt(0.5));
    // Half way through the third of a second: about half uncovered.
    clock.advance(std::chrono::milliseconds(165));
    QVERIFY(upload.sharpAt(0.3));
    QVERIFY(!upload.sharpAt(0.7));
    clock.advance(std::chrono::milliseconds(200));
    QVERIFY(upload.sharpAt(0.85));
    QCOMPARE(clock.pendingSteps(), 0);

    // Going back is shown at once, animated or not.
    view.setUploadProgress(0.2, upload.message, true);
    QVERIFY(!upload.sharpAt(0.5));
    QCOMPARE(clock.pendingSteps(), 0);
}

void TestChatView::newMessagesScrollOnlyAReaderAtTheBottom()
{
    QString words;
    for (int i = 0; i < 100; ++i)
        words += u"u%1t "_s.arg(i * 3);
    const ZuveroChatMessageList messages = conversation(words.trimmed());
    ShownView shown(messages.mid(0, 90));
    QScrollBar *bar = shown.list->verticalScrollBar();

    // Reading the history: left where it is.
    bar->setValue(100);
    shown.view.setMessages(messages.mid(0, 95));
    shown.view.scrollToLastMessageIfVisibleAnimated(false);
    QCOMPARE(bar->value(), 100);

    // At the bottom: follows the conversation.
    shown.view.scrollToLastMessageAnimated(false);
    shown.view.setMessages(messages.mid(0, 96));
    shown.view.scrollToLastMessageIfVisibleAnimated(false);
    QCOMPARE(bar->value(), bar->maximum());

    // A message added is always scrolled to.
    bar->setValue(0);
    shown.view.addMessage(conversation(u"u400t"_s).first(), false);
    QCOMPARE(bar->value(), bar->maximum());
}

void TestChatView::copyWithTheKeyboard()
{
    // Rows: Date, U0 (no tail), U1, Spacer, A2.
    ZuveroChatMessageList messages = conversation(u"u0t u10t a20t"_s);
    messages[1]->setText(u"Ünïcödé ✓ نص"_s);
    ShownView shown(messages);
    shown.list->setFocus();
    QCOMPARE(shown.model()->rowCount(), 5);

    const QStringList expected{QString(), u"text 0"_s, u"Ünïcödé ✓ نص"_s, QString(), u"text 2"_s};
    QTest::keyClick(shown.list, Qt::Key_Home);
    for (int row = 0; row < expected.size(); ++row) {
        QCOMPARE(shown.list->currentIndex().row(), row);
        QGuiApplication::clipboard()->clear();
        QTest::keyClick(shown.list, Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(clipboardText(), expected[row]);
        QTest::keyClick(shown.list, Qt::Key_Down);
    }
}

void TestChatView::copyFromTheContextMenu()
{
    ShownView shown(conversation(u"u0t a10t a20l"_s));
    const int agentText = shown.rowOfKind(ZuveroChatViewItemKindAgentMessage);
    const QPoint point = shown.bubblePoint(agentText, false);
    QContextMenuEvent event(QContextMenuEvent::Mouse, point,
                            shown.list->viewport()->mapToGlobal(point));
    QApplication::sendEvent(shown.list->viewport(), &event);
    auto *menu = shown.view.findChild<QMenu *>(u"copy_menu"_s);
    QVERIFY(menu);
    QCOMPARE(menu->actions().size(), 1);
    QCOMPARE(menu->actions().first()->text(), u"Copy"_s);
    menu->actions().first()->trigger();
    QCOMPARE(clipboardText(), u"text 1"_s);
    menu->close();

    // A location has no text: no menu.
    const int location = shown.rowOfKind(ZuveroChatViewItemKindAgentMessageLocation);
    const QPoint there = shown.bubblePoint(location, false);
    QContextMenuEvent none(QContextMenuEvent::Mouse, there,
                           shown.list->viewport()->mapToGlobal(there));
    QApplication::sendEvent(shown.list->viewport(), &none);
    QTRY_VERIFY(!shown.view.findChild<QMenu *>(u"copy_menu"_s));
}

void TestChatView::accessibleTreeNamesEveryRow()
{
    ShownView shown(conversation(u"u0t a10t u20to"_s), true);
    QAccessible::setActive(true);
    QAccessibleInterface *list = QAccessible::queryAccessibleInterface(shown.list);
    QVERIFY(list);
    QCOMPARE(list->text(QAccessible::Name), u"messages_list"_s);
    QCOMPARE(list->role(), QAccessible::List);
    const int rows = shown.model()->rowCount();
    QCOMPARE(list->childCount(), rows);
    QStringList texts;
    for (int i = 0; i < list->childCount(); ++i) {
        const QModelIndex index = shown.model()->index(i, 0);
        const QString text = list->child(i)->text(QAccessible::Name);
        QCOMPARE(text, index.data(Qt::AccessibleTextRole).toString());
        // Only the gaps between senders are silent.
        const bool spacer = index.data(Qt::UserRole + 1).toString() == ZuveroChatViewItemKindSpacer;
        QCOMPARE(text.isEmpty(), spacer);
        texts << text;
    }
    QVERIFY(texts.join(u'|').contains(u"text 1"_s));
    QVERIFY(texts.join(u'|').contains(u"text 2"_s));
}

void TestChatView::appendingMeasuresOnlyNewRows()
{
    // A user writing every 3 s: one row per message after the first date.
    QString words;
    for (int i = 0; i < 1050; ++i)
        words += u"u%1t "_s.arg(i * 3);
    const ZuveroChatMessageList all = conversation(words.trimmed());
    ShownView shown(all.mid(0, 1000));
    shown.view.scrollToLastMessageAnimated(false);
    auto *cells = qobject_cast<ZVXChatItemDelegate *>(shown.list->itemDelegate());
    QVERIFY(cells);
    QVERIFY(cells->layoutCount() >= 1000);

    const int before = cells->layoutCount();
    shown.view.setMessages(all);
    shown.view.scrollToLastMessageAnimated(false);
    shown.list->viewport()->repaint();
    const int visible = shown.list->viewport()->height() / 24 + 1;
    // 50 new rows, and the old last row that lost its tail.
    QVERIFY2(cells->layoutCount() - before <= visible + 51,
             qPrintable(QString::number(cells->layoutCount() - before)));
    QCOMPARE(shown.model()->rowCount(), 1051);
}

void TestChatView::heightsFollowTheRows()
{
    // Rows of every height (texts of one to many lines, pictures, places), changed the ways a
    // screen changes them: earlier history before, a send after, the unsent label moving.
    QString words;
    for (int i = 0; i < 40; ++i)
        words += u"%1%2%3 "_s.arg(i % 3 ? u"u"_s : u"a"_s)
                     .arg(i * 50)
                     .arg(QStringList{u"t"_s, u"p"_s, u"l"_s, u"tp"_s}.at(i % 4));
    ZuveroChatMessageList all = conversation(words.trimmed());
    for (int i = 0; i < all.size(); i += 3) {
        if (all[i]->text())
            all[i]->setText(u"several words "_s.repeated(i + 1));
    }
    ShownView changed(all.mid(10, 20));
    changed.view.setMessages(all.mid(0, 30));
    changed.view.setMessages(all);
    const ZuveroChatMessageList queue{all[31], all[34]};
    changed.view.updateViewWithOfflineMessages(queue, false);
    changed.view.updateViewWithOfflineMessages({all[34]}, false);

    ShownView fresh(all);
    fresh.view.updateViewWithOfflineMessages({all[34]}, false);
    QCOMPARE(changed.model()->rowCount(), fresh.model()->rowCount());
    for (int row = 0; row < fresh.model()->rowCount(); ++row)
        QCOMPARE(changed.rowRect(row).height(), fresh.rowRect(row).height());
}

void TestChatView::widthChangeMeasuresAgain()
{
    ZuveroChatMessageList messages = conversation(u"u0t"_s);
    messages[0]->setText(QString(u"many words "_s).repeated(30));
    ShownView shown(messages);
    const int row = shown.rowOfKind(ZuveroChatViewItemKindUserMessage);
    const int wide = shown.rowRect(row).height();
    shown.view.resize(ViewSize.width() / 2, ViewSize.height());
    QTRY_VERIFY(shown.rowRect(row).height() > wide);
    QVERIFY(shown.rowRect(row).width() <= ViewSize.width() / 2);
}

void TestChatView::badDataIsBounded_data()
{
    QTest::addColumn<ZuveroChatMessagePtr>("message");
    QTest::addColumn<int>("maximumHeight");

    // At most 60 lines of text, whatever the text.
    QTest::newRow("1 MB of text") << textMessage(u"user"_s,
                                                 QString(u"lorem ipsum "_s).repeated(90'000))
                                  << 1600;
    QTest::newRow("one word of 10,000 letters")
        << textMessage(u"agent"_s, QString(10'000, u'w')) << 1600;
    QTest::newRow("emoji and Arabic") << textMessage(
        u"user"_s, u"مرحبا 👋🏽 كيف حالك؟ 😀 https://example.com 12:30"_s)
                                      << 200;
    QTest::newRow("empty system line") << textMessage(u"system"_s, u" "_s) << 80;

    const auto picture = [](const QSizeF &size) {
        auto message = textMessage(u"user"_s, QString());
        auto attachment = std::make_shared<ZuveroChatAttachment>();
        attachment->setContentType(u"image/png"_s);
        attachment->setImageSize(size);
        message->setAttachments(ZuveroChatAttachmentList{attachment});
        return message;
    };
    QTest::newRow("picture 0 x 0") << picture(QSizeF(0, 0)) << 260;
    QTest::newRow("picture 1e9 x 1") << picture(QSizeF(1e9, 1)) << 260;
    QTest::newRow("picture 1 x 1e9") << picture(QSizeF(1, 1e9)) << 260;
    QTest::newRow("picture NaN") << picture(QSizeF(qQNaN(), -5)) << 260;
}

void TestChatView::badDataIsBounded()
{
    QFETCH(ZuveroChatMessagePtr, message);
    QFETCH(int, maximumHeight);

    ShownView shown(ZuveroChatMessageList{message});
    const int last = shown.model()->rowCount() - 1;
    const QRect rect = shown.rowRect(last);
    QVERIFY2(rect.height() >= 24 && rect.height() <= maximumHeight,
             qPrintable(QString::number(rect.height())));
    QVERIFY(rect.width() <= ViewSize.width());
    QVERIFY(!shown.view.grab().isNull());
}

void TestChatView::bubblesArePaintedInTheirColour_data()
{
    QTest::addColumn<QString>("messages");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("userSide");
    QTest::addColumn<bool>("rightToLeft");
    QTest::addColumn<QColor>("colour");

    const ZuveroAppearance look = ZuveroAppearance::defaults();
    QTest::newRow("user") << u"u0t"_s << ZuveroChatViewItemKindUserMessage.toString() << true
                          << false << look.userMessageBackgroundColor;
    QTest::newRow("agent") << u"a0t"_s << ZuveroChatViewItemKindAgentMessage.toString() << false
                           << false << look.agentMessageBackgroundColor;
    QTest::newRow("system") << u"s0t"_s << ZuveroChatViewItemKindSystemMessage.toString() << false
                            << false << look.systemMessageBackgroundColor;
    // Right to left, the user's bubble stands at the left.
    QTest::newRow("user, right to left") << u"u0t"_s << ZuveroChatViewItemKindUserMessage.toString()
                                         << false << true << look.userMessageBackgroundColor;
}

void TestChatView::bubblesArePaintedInTheirColour()
{
    QFETCH(QString, messages);
    QFETCH(QString, kind);
    QFETCH(bool, userSide);
    QFETCH(bool, rightToLeft);
    QFETCH(QColor, colour);

    ShownView shown(conversation(messages));
    if (rightToLeft)
        shown.view.setLayoutDirection(Qt::RightToLeft);
    const QByteArray rowKind = kind.toLatin1();
    const int row = shown.rowOfKind(QLatin1String(rowKind));
    const QRect rect = shown.rowRect(row);
    const QImage picture = shown.list->viewport()->grab().toImage();
    // Just inside the bubble's outer edge, below its rounded corner.
    const int x = userSide ? rect.right() - ZVXChatItemDelegate::SideInset - 12
                           : rect.left() + ZVXChatItemDelegate::SideInset + 12;
    const QColor painted = picture.pixelColor(x * picture.devicePixelRatio(),
                                              (rect.bottom() - 12) * picture.devicePixelRatio());
    QCOMPARE(painted.rgb(), colour.rgb());
}

void TestChatView::theHostsLookIsFollowed()
{
    ZVXTemporaryUserDefaults defaults;
    // A port nobody listens on: nothing here reaches a server.
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiKey(u"k"_s, u"127.0.0.1:9"_s, {}));
    zuvero->appearance().userMessageBackgroundColor = QColor(200, 30, 30);
    ShownView shown(conversation(u"u0t"_s));
    shown.view.setApiInstance(zuvero.get());
    const auto bubbleColour = [&] {
        const QRect rect = shown.rowRect(shown.rowOfKind(ZuveroChatViewItemKindUserMessage));
        const QImage picture = shown.list->viewport()->grab().toImage();
        return picture.pixelColor(rect.right() - ZVXChatItemDelegate::SideInset - 12,
                                  rect.bottom() - 12);
    };
    QCOMPARE(bubbleColour(), QColor(200, 30, 30));
    const int height = shown.rowRect(1).height();

    // A new look is taken at the next reload, and the rows are measured for it.
    zuvero->appearance().userMessageBackgroundColor = QColor(20, 120, 40);
    QFont larger = zuvero->appearance().messageFont.value_or(QFont());
    larger.setPixelSize(34);
    zuvero->appearance().messageFont = larger;
    shown.view.reloadDataAnimated(false);
    QCOMPARE(bubbleColour(), QColor(20, 120, 40));
    QVERIFY(shown.rowRect(1).height() > height);
}

void TestChatView::sizeLabels_data()
{
    QTest::addColumn<quint64>("length");
    QTest::addColumn<QString>("label");

    QTest::newRow("2 KiB") << quint64(2048) << u"2 Ko"_s;
    QTest::newRow("3 MiB") << quint64(3'145'728) << u"3 Mo"_s;
    QTest::newRow("exactly 1 MiB") << quint64(1'048'576) << u"1 Mo"_s;
    QTest::newRow("just below 1 MiB") << quint64(1'048'575) << u"1024 Ko"_s;
    QTest::newRow("two fraction digits") << quint64(5'000'000) << u"4.77 Mo"_s;
    QTest::newRow("one fraction digit") << quint64(1536) << u"1.5 Ko"_s;
    QTest::newRow("a few bytes") << quint64(10) << u"0.01 Ko"_s;
}

void TestChatView::sizeLabels()
{
    QFETCH(quint64, length);
    QFETCH(QString, label);
    QCOMPARE(ZuveroChatBaseMessageCell::sizeLabel(length), label);
}

QTEST_MAIN(TestChatView)
#include "tst_chatview.moc"
