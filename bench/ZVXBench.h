#pragma once

#include "ZuveroChatMessage.h"

#include <QList>
#include <QString>

#include <functional>
#include <optional>

/*
    The benchmark's parts: work done in the process (timed here and counted
    in instructions under callgrind) and work against a real dev server
    (timed only). Every figure is set beside a baseline measured in the same
    run, and printed as a ratio.
*/
namespace ZVXBench {

//! One piece of work in the process, repeated as a whole for each measurement.
struct Case
{
    QString name;
    std::function<void()> run;
    //! Operations in one run, to give figures per operation.
    int operations = 1;
};

//! The work of the in-process rows, data made once.
class InProcess
{
public:
    //! \a page: a page of 50 messages as the dev server sends it.
    explicit InProcess(const QByteArray &page);
    QList<Case> cases() const { return m_cases; }
    //! Whether the library's merge and the literal rule agree on both data sets.
    QString mergeCheck() const { return m_mergeCheck; }

private:
    QList<Case> m_cases;
    QString m_mergeCheck;
};

//! The merge rule as its words describe it: recorded identifiers, a scan of the new messages for
//! an equal one, insertion at the front, and a sort with the rule's comparator.
ZuveroChatMessageList literalCombine(const ZuveroChatMessageList &existing,
                                     const ZuveroChatMessageList &newMessages);

//! \a existingCount messages a second apart, and \a newCount new ones: half are newer copies of
//! existing messages, half new, some dated like existing ones or like each other.
std::pair<ZuveroChatMessageList, ZuveroChatMessageList> mergeData(int existingCount, int newCount);

//! Milliseconds of \a sample's middle value.
double median(QList<double> sample);

struct Row
{
    QString name;
    QString measured; //!< with its unit
    QString baseline;
    double ratio = 0; //!< 0: none
    QString goal; //!< e.g. "<= 1.3x"; empty: reported only
    std::optional<bool> met;
};

/*!
    Rows measured against dev servers started here: send, history page,
    Nagle, curl, connections. \a page receives a page of 50 messages as
    the server sends it. Nothing and a \a problem when a server failed.
*/
QList<Row> networkRows(int repetitions, QByteArray *page, QString *problem);

} // namespace ZVXBench
