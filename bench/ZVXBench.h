#pragma once

#include "ZuveroChatMessage.h"

#include <QList>
#include <QString>
#include <QStringList>

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
    //! An instruction-count goal depends on it: counted by --quick too.
    bool goal = false;
};

//! The work of the in-process rows, data made once.
class InProcess
{
public:
    //! \a page: a page of 50 messages as the dev server sends it. \a goalsOnly: only the cases an
    //! instruction-count goal depends on.
    explicit InProcess(const QByteArray &page, bool goalsOnly = false);
    QList<Case> cases() const { return m_cases; }
    /*!
        What the measured work produced, checked against an independent
        reading: the library's page against the variant reading of the same
        text, every merge against the rule done literally. Empty when all agree.
    */
    QStringList problems() const;

private:
    QByteArray m_page;
    QList<Case> m_cases;
    std::function<QStringList()> m_mergeProblems;
};

//! The merge rule as its words describe it: recorded identifiers, a scan of the new messages for
//! an equal one, insertion at the front, and a sort with the rule's comparator.
ZuveroChatMessageList literalCombine(const ZuveroChatMessageList &existing,
                                     const ZuveroChatMessageList &newMessages);

//! The middle value of \a sample.
double median(QList<double> sample);
//! The value below which a fraction \a q of \a sample lies, interpolated.
double quantile(QList<double> sample, double q);

//! Wall times of the runs of one measure, in milliseconds, in the order they were taken.
using Runs = QList<double>;

struct Row
{
    QString name;
    QString measured; //!< with its unit
    QString baseline;
    double ratio = 0; //!< 0: none
    QString spread; //!< of the ratio over the runs; empty for counts
    QString goal; //!< e.g. "<= 1.3x"; empty: reported only
    std::optional<bool> met;
    //! A missed goal fails the run; wall-time goals are only shown, the machine being shared.
    bool enforced = true;
};

//! \a value with its unit: "ms" (shown in microseconds when small), or a count such as "Ir".
QString formatted(double value, const QString &unit);

//! \a measured beside \a baseline, runs taken in turns: the ratio is the median of the ratios of
//! the runs, its spread their interquartile range.
Row compareRuns(const QString &name, const Runs &measured, const Runs &baseline,
                const QString &unit, double goal = 0);
//! A measure without a baseline: the median of the runs, their interquartile range as the spread.
Row singleRuns(const QString &name, const Runs &runs, const QString &unit);

/*!
    Rows measured against a dev server started here: sends, connections and
    the history page. \a page receives a page of 50 messages as the server
    sends it. Nothing and a \a problem when the server failed.
*/
QList<Row> networkRows(int repetitions, QByteArray *page, QString *problem);

} // namespace ZVXBench
