#pragma once

#include <filesystem>
#include <vector>

#include "dialogs/CTessalyDialog.h"
#include "platform/Certificates.h"
#include "platform/Chains.h"

class QTabWidget;

// One certificate as a person reads it: what it is for and whether it holds, every field and extension, and the path to
// its root.
class CCertificateView : public CTessalyDialog {
    Q_OBJECT
  public:
    explicit CCertificateView(platform::CertificateContext certificate,
                              const QString& title = QStringLiteral("Сертификат"));

  protected:
    void changeEvent(QEvent* event) override;

  private:
    struct Field {
        QString name, value;
    };
    QWidget* MakeGeneral();
    QWidget* MakeDetails();
    QWidget* MakePath();
    [[nodiscard]] std::vector<Field> Fields() const;
    void ShowElement(int depth);
    void Export();
    void WriteTo(const std::filesystem::path& file) const;
    void KeepReadable();

    platform::CertificateContext certificate_;
    platform::ChainContext chain_;
    std::vector<Field> fields_;
    QTabWidget* tabs_ = nullptr;
};
