#pragma once

#include "ZVXBench.h"

namespace ZVXBench {

/*!
    The chat list's rows without widgets: building the rows of 10,000
    messages again and handing them to the list model, which finds nothing
    changed (what a reload that brought nothing new costs).
*/
QList<Case> chatRowCases();

/*!
    The chat list on an offscreen window, \a repetitions runs of each wall-time
    measure: appending 50 messages to a conversation of 100,000 and the rows
    that costs to lay out, the first painted frame of a list of 100 messages
    beside a bare QListView showing the same texts, the chat screen opened
    with 100 cached messages beside a bare window, and the heap a list of
    1,000 messages takes above an empty window.
*/
QList<Row> chatListRows(int repetitions);

} // namespace ZVXBench
