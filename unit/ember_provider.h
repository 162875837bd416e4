// The unit's Ember+ provider: one node for the unit, its identity below it, and the place where the library builds its tree.
#pragma once

#include "settings.h"

#include "zel_ember.h"

#include <memory>
#include <string>

namespace zel {

class ember_provider {
public:
    // False, with the cause in the log, if it cannot listen there; session() and parent() are then null.
    bool open(const unit_settings &settings, const std::string &serial);

    zel_ember_session_t *session() const { return session_.get(); }
    zel_ember_element_t *parent() const { return parent_; }
    void close();

private:
    struct release {
        void operator()(zel_ember_session_t *session) const { zel_ember_session_term(session); }
    };
    bool add_identity(const unit_settings &settings, const std::string &serial);

    std::unique_ptr<zel_ember_session_t, release> session_;
    zel_ember_element_t *parent_ = nullptr;
};

// The serial number kept in "/etc/zel/serial" below the unit's root; made at the first start. "" if it can neither be read nor
// made.
std::string unit_serial();

}  // namespace zel
