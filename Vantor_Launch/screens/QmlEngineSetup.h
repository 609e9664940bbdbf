#pragma once

class LaunchStore;
class QQmlEngine;

// Makes an engine ready for the launcher's views: the module's import path, the store that the
// views know as `Store`, the symbol images and the dark palette of the controls.
// The application, the screenshot tool and the tests all load the views through it.
void prepareQmlEngine(QQmlEngine& engine, LaunchStore& store);
