#include "TableCells.h"

namespace TableCells {

QTableWidgetItem* Make(const QString& text)
{
    auto* item = new QTableWidgetItem(text);
    item->setTextAlignment(Qt::AlignCenter);
    return item;
}

QTableWidgetItem* Make(const std::string& text)
{
    return Make(QString::fromStdString(text));
}

std::string Text(const QTableWidget* table, int row, int column)
{
    const QTableWidgetItem* item = table->item(row, column);
    return item != nullptr ? item->text().toLatin1().toStdString() : std::string();
}

} // namespace TableCells
