#pragma once

#include <QString>
#include <QStringView>

class QTableView;

// Sizes of a table view's cells for texts that need not be in its model, as
// the view's delegate and style would give them: a live view sizes its columns
// from a few texts of the right shape instead of rendering every row.
namespace CellMetrics {

// Digits of the texts whose shape a column must fit.
inline constexpr QStringView DECIMAL_DIGITS = u"0123456789";
inline constexpr QStringView HEX_DIGITS = u"0123456789abcdef";

// The width that QTableView::resizeColumnToContents gives `column` when its
// widest cell shows `text` on one line: the cell with the grid line, or the
// header label when that needs more.
int ColumnWidth(const QTableView* view, int column, const QString& text);
// The height of a row whose cells show two lines of text, grid line included.
int TwoLineRowHeight(const QTableView* view);
// ColumnWidth for every text of the shape of `text`: texts that differ from it
// only in characters of `alphabet`. Measures `text` with each such character
// replaced by the widest of `alphabet` in the view's font.
int ShapeColumnWidth(const QTableView* view, int column, const QString& text, QStringView alphabet);

} // namespace CellMetrics
