#include "ZVXChatRowDiff.h"

#include <QHash>

#include <algorithm>
#include <vector>

namespace {

using Step = ZVXChatRowDiff::Step;

// Each move costs a pass over the changed rows; past this many row visits,
// rows out of order are removed and inserted instead.
constexpr qint64 MoveBudget = 4'000'000;

// Marks the positions of a longest strictly increasing subsequence of \a values.
std::vector<bool> longestIncreasing(const std::vector<int> &values)
{
    std::vector<int> tails; // positions in values, of the smallest tail of each length
    std::vector<int> previous(values.size(), -1);
    for (int i = 0; i < int(values.size()); ++i) {
        const auto it = std::lower_bound(
            tails.begin(), tails.end(), values[size_t(i)],
            [&values](int position, int value) { return values[size_t(position)] < value; });
        if (it != tails.begin())
            previous[size_t(i)] = *(it - 1);
        if (it == tails.end())
            tails.push_back(i);
        else
            *it = i;
    }
    std::vector<bool> kept(values.size(), false);
    for (int i = tails.empty() ? -1 : tails.back(); i >= 0; i = previous[size_t(i)])
        kept[size_t(i)] = true;
    return kept;
}

// \a from and \a to give the identity at a position: a row's own, without a copy.
template<typename From, typename To>
QList<Step> diff(int n, int m, From from, To to)
{
    using Identity = ZVXChatRowDiff::Identity;
    int prefix = 0;
    // The same object is the same identity, and costs no comparison of texts: a list that
    // grew at its end shares its rows with the one before.
    const auto same = [&from, &to](int i, int j) {
        const Identity &a = from(i);
        const Identity &b = to(j);
        return &a == &b || a == b;
    };
    while (prefix < n && prefix < m && same(prefix, prefix))
        ++prefix;
    int suffix = 0;
    while (suffix < n - prefix && suffix < m - prefix && same(n - 1 - suffix, m - 1 - suffix))
        ++suffix;
    const int oldCount = n - prefix - suffix;
    const int newCount = m - prefix - suffix;

    QList<Step> steps;
    if (oldCount == 0 && newCount == 0)
        return steps;
    if (oldCount == 0)
        return {Step{Step::Kind::Insert, prefix, newCount, 0}};
    if (newCount == 0)
        return {Step{Step::Kind::Remove, prefix, oldCount, 0}};

    QHash<Identity, int> newIndex;
    newIndex.reserve(newCount);
    // Backwards, so that the first of two equal identities is the one kept.
    for (int j = newCount - 1; j >= 0; --j)
        newIndex.insert(to(prefix + j), j);
    std::vector<int> match(size_t(oldCount), -1);
    std::vector<bool> matchedNew(size_t(newCount), false);
    std::vector<int> matchedOld; // positions of matched old rows, in order
    std::vector<int> order; // their new positions
    for (int i = 0; i < oldCount; ++i) {
        const auto it = newIndex.constFind(from(prefix + i));
        if (it == newIndex.cend() || matchedNew[size_t(*it)])
            continue;
        match[size_t(i)] = *it;
        matchedNew[size_t(*it)] = true;
        matchedOld.push_back(i);
        order.push_back(*it);
    }

    const std::vector<bool> stable = longestIncreasing(order);
    std::vector<bool> placed(size_t(newCount), false);
    std::vector<int> movers;
    for (size_t k = 0; k < order.size(); ++k) {
        if (stable[k])
            placed[size_t(order[k])] = true;
        else
            movers.push_back(order[k]);
    }
    if (qint64(movers.size()) * oldCount > MoveBudget) {
        for (size_t k = 0; k < order.size(); ++k) {
            if (!stable[k]) {
                match[size_t(matchedOld[k])] = -1;
                matchedNew[size_t(order[k])] = false;
            }
        }
        movers.clear();
    }

    for (int i = oldCount - 1; i >= 0;) {
        if (match[size_t(i)] >= 0) {
            --i;
            continue;
        }
        int first = i;
        while (first > 0 && match[size_t(first - 1)] < 0)
            --first;
        steps.append(Step{Step::Kind::Remove, prefix + first, i - first + 1, 0});
        i = first - 1;
    }

    std::vector<int> current;
    current.reserve(size_t(oldCount));
    for (int j : match) {
        if (j >= 0)
            current.push_back(j);
    }
    std::sort(movers.begin(), movers.end());
    for (int j : movers) {
        const auto at = std::find(current.begin(), current.end(), j);
        const int row = int(at - current.begin());
        current.erase(at);
        // Right after the last row already in its place that comes before it.
        int destination = 0;
        for (int k = int(current.size()) - 1; k >= 0; --k) {
            const int other = current[size_t(k)];
            if (placed[size_t(other)] && other < j) {
                destination = k + 1;
                break;
            }
        }
        current.insert(current.begin() + destination, j);
        placed[size_t(j)] = true;
        if (destination != row)
            steps.append(Step{Step::Kind::Move, prefix + row, 0, prefix + destination});
    }

    for (int j = 0; j < newCount;) {
        if (matchedNew[size_t(j)]) {
            ++j;
            continue;
        }
        int end = j;
        while (end < newCount && !matchedNew[size_t(end)])
            ++end;
        steps.append(Step{Step::Kind::Insert, prefix + j, end - j, 0});
        j = end;
    }
    return steps;
}

} // namespace

QList<Step> ZVXChatRowDiff::steps(const QList<Identity> &from, const QList<Identity> &to)
{
    return diff(
        int(from.size()), int(to.size()), [&from](int i) -> const Identity & { return from[i]; },
        [&to](int i) -> const Identity & { return to[i]; });
}

QList<Step> ZVXChatRowDiff::steps(const QList<ZuveroChatViewItem> &from,
                                  const QList<ZuveroChatViewItem> &to)
{
    return diff(
        int(from.size()), int(to.size()),
        [&from](int i) -> const Identity & { return from[i].identity(); },
        [&to](int i) -> const Identity & { return to[i].identity(); });
}
