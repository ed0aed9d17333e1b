#pragma once

#include "app/VXNotificationPoster.h"

// The headless application's notifications: each notification's description and each alert's message
// become one log line ("Waiting for connections on port 2846").
class VXLogNotificationPoster : public VXNotificationPoster {
public:
    // Logs the description.
    void postNotification(const std::string& title, const std::string& description,
                          const std::string& name) override;
    // Logs the message, then the informative text when there is one.
    void showCriticalAlert(const std::string& message, const std::string& informativeText) override;
};
