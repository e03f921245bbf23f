#pragma once

#include <QByteArray>
#include <QSet>
#include <QVector>

/// @return the words, folded, of all statements of the scripts that can change or remove rows
QSet<QByteArray> wordsOfChangingStatements(const QVector<QByteArray> &scripts);
