#pragma once

#include <QString>
#include <QTableWidget>
#include <QTableWidgetItem>

#include <string>

// The cells of the program's tables: every cell is centred, and the engine's
// texts are plain ASCII.
namespace TableCells {

QTableWidgetItem* Make(const QString& text);
QTableWidgetItem* Make(const std::string& text);
// The text of a cell as ASCII, empty for a cell that was never filled.
std::string Text(const QTableWidget* table, int row, int column);

} // namespace TableCells
