// The chat list as a host shows it: a ZuveroChatView at a phone-like size on an offscreen window,
// beside a bare QListView where Qt offers the same job.

#include "ZVXBenchChatList.h"
#include "ZVXChatItemDelegate.h"
#include "ZVXChatListModel.h"
#include "ZVXChatRowBuilder.h"
#include "Zuvero.h"
#include "ZuveroChatView.h"

#include <QElapsedTimer>
#include <QListView>
#include <QScrollBar>
#include <QStringListModel>

#include <malloc.h>

#include <memory>

namespace ZVXBench {

namespace {

constexpr QSize ViewSize(420, 600);
const QDateTime Start = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);

volatile qint64 sink = 0;

const QStringList Sentences{
    QStringLiteral("Hello!"),
    QStringLiteral("My order has not arrived yet, could you check where it is?"),
    QStringLiteral("Of course. It left our warehouse yesterday and should be with you "
                   "tomorrow morning; here is the tracking page: https://example.com/track"),
    QStringLiteral("Thanks"),
    QStringLiteral("Is there anything else I can help you with today? Our opening hours are "
                   "from 9 to 18, Monday to Saturday, and you can call +33 1 23 45 67 89."),
};

// Message \a index of a conversation: runs of three messages by one side, 40 s apart, so that
// there are tails, names, spacers and a date row every quarter of an hour.
ZuveroChatMessagePtr message(int index)
{
    auto message = std::make_shared<ZuveroChatMessage>();
    message->setUuid(QStringLiteral("bench-%1").arg(index));
    const bool agent = (index / 3) % 2;
    message->setSender(agent ? QStringLiteral("agent") : QStringLiteral("user"));
    if (agent)
        message->setUserName(QStringLiteral("Anna"));
    message->setDate(Start.addSecs(qint64(index) * 40));
    message->setText(Sentences.at(index % Sentences.size()));
    return message;
}

ZuveroChatMessageList conversation(int first, int count)
{
    ZuveroChatMessageList messages;
    messages.reserve(count);
    for (int i = first; i < first + count; ++i)
        messages.append(message(i));
    return messages;
}

qint64 heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks + info.hblkhd);
}

ZVXChatItemDelegate *cellsOf(ZuveroChatView &view)
{
    return qobject_cast<ZVXChatItemDelegate *>(view.scrollView()->itemDelegate());
}

// Painting the viewport now, as the next frame would.
void paintNow(QAbstractScrollArea *list)
{
    list->viewport()->repaint();
}

double elapsedMs(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

QStringList textsOf(const ZuveroChatMessageList &messages)
{
    QStringList texts;
    for (const auto &message : messages)
        texts << message->text().value_or(QString());
    return texts;
}

// The baseline of a first frame: a bare QListView window of \a texts, wrapped, scrolled to its end
// and painted, in milliseconds from its making.
double bareListFrameMs(const QStringList &texts)
{
    QElapsedTimer timer;
    timer.start();
    QListView view;
    view.resize(ViewSize);
    view.setWordWrap(true);
    view.setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    QStringListModel model(texts);
    view.setModel(&model);
    view.show();
    view.scrollToBottom();
    sink = view.grab().width();
    return elapsedMs(timer);
}

// A first frame's goal: at most twice the bare list's; wall time, so shown, not held to it.
Row withinTwiceTheBareList(Row row)
{
    row.goal = QStringLiteral("<= 2x");
    row.met = row.ratio <= 2;
    row.enforced = false;
    return row;
}

// Appends 50 messages at a time to a conversation of 100,000, each followed by a frame.
QList<Row> appendRows(int repetitions)
{
    ZuveroChatView view;
    view.resize(ViewSize);
    ZuveroChatMessageList messages = conversation(0, 100'000);
    view.setMessages(messages);
    view.show();
    view.scrollToLastMessageAnimated(false);
    paintNow(view.scrollView());
    ZVXChatItemDelegate *cells = cellsOf(view);
    QAbstractItemModel *model = view.scrollView()->model();

    Runs times, laidOut, expected;
    for (int i = 0; i < repetitions; ++i) {
        const ZuveroChatMessageList more = conversation(int(messages.size()), 50);
        messages.append(more);
        const int rowsBefore = model->rowCount();
        const int layoutsBefore = cells->layoutCount();
        QElapsedTimer timer;
        timer.start();
        view.setMessages(messages);
        view.scrollToLastMessageAnimated(false);
        paintNow(view.scrollView());
        times << elapsedMs(timer);
        // At most the new rows, the row before them (its tail may change) and what is on screen.
        const int visible = view.scrollView()->viewport()->height() / 20 + 1;
        laidOut << cells->layoutCount() - layoutsBefore;
        expected << (model->rowCount() - rowsBefore) + 1 + visible;
    }
    // One frame; wall time, so shown, not held to it.
    Row rows = singleRuns(QStringLiteral("chat list: append 50 to 100,000 messages and paint"),
                          times, QStringLiteral("ms"));
    rows.goal = QStringLiteral("<= 16.7 ms");
    rows.met = median(times) <= 16.7;
    rows.enforced = false;
    Row layouts{QStringLiteral("chat list: rows laid out per append vs new + visible rows"),
                formatted(median(laidOut), QStringLiteral("rows")),
                formatted(median(expected), QStringLiteral("rows")),
                median(laidOut) / median(expected),
                QString(),
                QStringLiteral("<= 1x"),
                *std::max_element(laidOut.cbegin(), laidOut.cend())
                    <= *std::min_element(expected.cbegin(), expected.cend())};
    return {rows, layouts};
}

// The first painted frame of a window showing 100 messages: the chat list beside a bare QListView
// with the same texts, wrapped, taken in turns.
Row firstFrameRow(int repetitions)
{
    const ZuveroChatMessageList messages = conversation(0, 100);
    const QStringList texts = textsOf(messages);
    Runs library, bare;
    for (int i = 0; i < repetitions; ++i) {
        {
            QElapsedTimer timer;
            timer.start();
            ZuveroChatView view;
            view.resize(ViewSize);
            view.setMessages(messages);
            view.show();
            view.scrollToLastMessageAnimated(false);
            sink = view.grab().width();
            library << elapsedMs(timer);
        }
        bare << bareListFrameMs(texts);
    }
    return withinTwiceTheBareList(
        compareRuns(QStringLiteral("chat list: first frame of 100 messages vs bare QListView"),
                    library, bare, QStringLiteral("ms")));
}

// Opening the chat screen with 100 cached messages to its first painted frame, beside a bare window
// with a QListView of the same texts. The facade's server does not answer: the screen's first
// reload fails on its own time, after the frame.
Row openScreenRow(int repetitions)
{
    std::unique_ptr<Zuvero> facade(
        Zuvero::initWithApiSecret(QStringLiteral("0a1b2c3d4e5f60718293a4b5c6d7e8f9"),
                                  QStringLiteral("127.0.0.1:9"), Zuvero::DelegatePtr()));
    const ZuveroChatMessageList messages = conversation(0, 100);
    facade->saveCachedMessages(messages, true);
    const QStringList texts = textsOf(messages);
    Runs library, bare;
    for (int i = 0; i < repetitions; ++i) {
        {
            QElapsedTimer timer;
            timer.start();
            std::unique_ptr<QWidget> screen(facade->chatViewController());
            screen->resize(ViewSize);
            screen->show();
            sink = screen->grab().width();
            library << elapsedMs(timer);
        }
        bare << bareListFrameMs(texts);
    }
    return withinTwiceTheBareList(compareRuns(
        QStringLiteral("chat screen: open with 100 cached messages vs bare QListView window"),
        library, bare, QStringLiteral("ms")));
}

// The heap a list of 1,000 messages takes once every row has been painted, above an empty window
// of the same size.
Row heapRow()
{
    QWidget empty;
    empty.resize(ViewSize);
    empty.show();
    sink = empty.grab().width();
    const qint64 before = heapInUse();
    qint64 after = 0;
    {
        ZuveroChatView view;
        view.resize(ViewSize);
        view.setMessages(conversation(0, 1000));
        view.show();
        QListView *list = view.scrollView();
        for (int top = 0; top < list->verticalScrollBar()->maximum();
             top += list->viewport()->height()) {
            list->verticalScrollBar()->setValue(top);
            paintNow(list);
        }
        view.scrollToLastMessageAnimated(false);
        paintNow(list);
        after = heapInUse();
    }
    const double mib = double(after - before) / (1024.0 * 1024.0);
    return Row{QStringLiteral("chat list: heap of 1,000 messages above an empty window"),
               QStringLiteral("%1 MiB").arg(mib, 0, 'f', 2),
               QString(),
               0,
               QString(),
               QStringLiteral("<= 10 MiB"),
               mib <= 10};
}

} // namespace

QList<Case> chatRowCases()
{
    constexpr int Count = 10'000;
    const ZuveroChatMessageList messages = conversation(0, Count);
    auto model = std::make_shared<ZVXChatListModel>();
    const ZVXChatRowBuilder::DateText dateText
        = ZVXChatRowBuilder::dateText(model->dateFormatter());
    model->setRows(ZVXChatRowBuilder::buildRows(messages, true, dateText));
    return {Case{QStringLiteral("chat rows: rebuild 10000"),
                 [=] {
                     model->setRows(ZVXChatRowBuilder::buildRows(messages, true, dateText));
                     sink = model->rowCount();
                 },
                 Count}};
}

QList<Row> chatListRows(int repetitions)
{
    QList<Row> rows = appendRows(repetitions);
    rows << firstFrameRow(repetitions);
    rows << openScreenRow(repetitions);
    rows << heapRow();
    return rows;
}

} // namespace ZVXBench
