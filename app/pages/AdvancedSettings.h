// The block of settings that work as they are: service, synthesis, engine.
//
// Owned by the settings page. Holds what is typed until the page takes it over; numbers are typed as
// text, and what is no number leaves the stored one as it is.
#pragma once

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "app/pages/FormPage.h"
#include "core/config/AppConfig.h"

namespace zepho {

class AdvancedSettings : public FormPage {
    Q_OBJECT

public:
    explicit AdvancedSettings(AppState& state, QWidget* parent = nullptr);

    // Shows what the configuration holds.
    void load();
    // The port that is typed; nothing if it is none.
    [[nodiscard]] std::optional<std::int64_t> port() const;
    // Writes everything but the port.
    void store(AppConfig& config, EngineOptions& engine) const;

private:
    struct Field {
        std::function<void(const AppConfig&, const EngineOptions&)> show;
        std::function<void(AppConfig&, EngineOptions&)> take;
    };

    void addService(QVBoxLayout* to);
    void addSynthesis(QVBoxLayout* to);
    void addEngine(QVBoxLayout* to);
    QLineEdit* numberEdit(QFormLayout* form, std::string_view key, const char* objectName,
                          std::string_view note = {});
    void addNumber(QFormLayout* form, std::string_view key, const char* objectName,
                   Setting<std::int64_t> AppConfig::*field);
    void addNumber(QFormLayout* form, std::string_view key, const char* objectName,
                   std::int64_t EngineOptions::*field, std::string_view note = {});
    void addDecimal(QFormLayout* form, std::string_view key, const char* objectName,
                    float EngineOptions::*field);
    void addFlag(QFormLayout* form, std::string_view key, const char* objectName,
                 Setting<bool> AppConfig::*field);

    QLineEdit* portEdit = nullptr;
    std::vector<Field> fields;
};

}  // namespace zepho
