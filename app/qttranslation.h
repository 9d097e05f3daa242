#pragma once

class QCoreApplication;

// Loads Qt's own Russian texts (standard buttons, file dialogs, the context
// menus of text fields) from Qt's translations folder; the program's own texts
// are Russian already. False, with a line in the log, when they are missing.
bool installQtTranslation(QCoreApplication& app);
