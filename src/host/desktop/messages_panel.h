// What a solution's developer needs to see: partners, messages in and out, what waits, scripts that were asked for,
// globals - and a console.
#pragma once

#include <QElapsedTimer>
#include <QWidget>
#include <cstdint>

class QLineEdit;
class QPlainTextEdit;
class QTabWidget;
class QTreeWidget;

namespace host::desktop {

class Desk;

class MessagesPanel : public QWidget {
  public:
    explicit MessagesPanel(Desk& desk);
    ~MessagesPanel() override;

    void showConsole(bool console);
    void showTab(int index);
    void openLatest();                // shows the parameters of the latest event
    void enter(const QString& text);  // as if it was typed in the console
    void refresh();                   // reads what is shown again

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    void makeConsole(QWidget* page);
    void showPartners();
    void showMessages();
    void showWaiting();
    void showScripts();
    void showGlobals();

    Desk& desk_;
    QTabWidget* tabs_;
    QTreeWidget* partners_;
    QTreeWidget* messages_;
    QTreeWidget* waiting_;
    QTreeWidget* scripts_;
    QTreeWidget* globals_;
    QPlainTextEdit* output_ = nullptr;
    QLineEdit* input_ = nullptr;
    QStringList history_;
    qsizetype historyAt_ = 0;
    std::uint64_t messagesShown_ = 0;
    std::uint64_t waitingShown_ = ~std::uint64_t{0};
    std::uint64_t scriptsShown_ = 0;
    QElapsedTimer sinceRefresh_;
};

// Shows the window, which there is once.
MessagesPanel& openMessagesPanel(Desk& desk, bool console);

}  // namespace host::desktop
