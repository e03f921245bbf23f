#include "guard/verdict/script_words.h"

#include "guard/verdict/version_table.h"

#include <cctype>

QSet<QByteArray> wordsOfChangingStatements(const QVector<QByteArray> &scripts)
{
    static const QSet<QByteArray> changing = {"update", "replace", "delete", "drop", "alter"};
    QSet<QByteArray> words;
    for (QByteArray script : scripts) {
        // Read as the program does: lines are joined with nothing between them, and ";" ends a
        // statement.
        script.replace("\n", "");
        for (const QByteArray &statement : script.split(';')) {
            QSet<QByteArray> own;
            QByteArray word;
            for (const char letter : statement + ' ') {
                const auto byte = static_cast<unsigned char>(letter);
                if (std::isalnum(byte) != 0 || letter == '_' || byte >= 0x80) {
                    word += letter;
                } else {
                    own << folded(word);
                    word.clear();
                }
            }
            if (own.intersects(changing)) {
                words += own;
            }
        }
    }
    return words;
}
