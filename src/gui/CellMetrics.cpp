#include "CellMetrics.h"

#include <QHeaderView>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QTableView>

#include <algorithm>

namespace CellMetrics {

namespace {

// What the view and its delegate tell the style about a centred cell showing
// `text`, given no room: the size the text takes by itself.
QSize CellSize(const QTableView* view, const QString& text)
{
    QStyleOptionViewItem option;
    option.initFrom(view);
    option.rect = QRect();
    option.font = view->font();
    option.fontMetrics = view->fontMetrics();
    option.widget = view;
    option.features = QStyleOptionViewItem::HasDisplay;
    if (view->wordWrap()) {
        option.features |= QStyleOptionViewItem::WrapText;
    }
    option.displayAlignment = Qt::AlignCenter;
    option.textElideMode = view->textElideMode();
    option.text = text;
    return view->style()->sizeFromContents(QStyle::CT_ItemViewItem, &option, QSize(), view);
}

int GridLine(const QTableView* view)
{
    return view->showGrid() ? 1 : 0;
}

} // namespace

int ColumnWidth(const QTableView* view, int column, const QString& text)
{
    const int cell = CellSize(view, text).width() + GridLine(view);
    const QHeaderView* header = view->horizontalHeader();
    return std::max(cell, header->isHidden() ? 0 : header->sectionSizeHint(column));
}

int TwoLineRowHeight(const QTableView* view)
{
    // The delegate shows a line separator as a line break, as it does a '\n'.
    const QString twoLines = QStringLiteral("Xg") + QChar(QChar::LineSeparator) + QStringLiteral("Xg");
    return CellSize(view, twoLines).height() + GridLine(view);
}

int ShapeColumnWidth(const QTableView* view, int column, const QString& text, QStringView alphabet)
{
    const QFontMetrics metrics = view->fontMetrics();
    const QChar widest = *std::max_element(alphabet.begin(), alphabet.end(), [&metrics](QChar a, QChar b) {
        return metrics.horizontalAdvance(a) < metrics.horizontalAdvance(b);
    });
    QString shape = text;
    for (QChar& character : shape) {
        if (alphabet.contains(character)) {
            character = widest;
        }
    }
    return ColumnWidth(view, column, shape);
}

} // namespace CellMetrics
