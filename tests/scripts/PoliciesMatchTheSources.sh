#!/usr/bin/env bash
# The group policies are held against the sources as they are, and then copies that are broken in one place each.
set -euo pipefail
cd "$(dirname "$0")/../.."
COPIED=(Include TKDAS certificates channel dialogs drop modules packaging resources startup tray)
CHECK=(scripts/lib/check-administration policies)
# shellcheck source=tests/scripts/support/changed-copy.sh
. tests/scripts/support/changed-copy.sh
ADMX=packaging/policy/KestrelDeskAssist.admx
ENGLISH=packaging/policy/en-US/KestrelDeskAssist.adml
GERMAN=packaging/policy/de-DE/KestrelDeskAssist.adml

"${CHECK[@]}"

# Files that aren't whole.
refused "$ADMX" '$ d' 'no element found'
refused "$GERMAN" 's|</stringTable>||' 'mismatched tag'
refused "$ADMX" 's/ schemaVersion="1.0"//' 'the root is no policyDefinitions with revision and schemaVersion'
refused "$ADMX" 's/ minRequiredRevision="1.0"//' 'resources have no minRequiredRevision'
refused "$ADMX" '0,/<supportedOn ref="SUPPORTED_Agent"\/>/ s///' 'policy lacks supportedOn'
refused "$ADMX" '/<enabledValue>/ { h; d }; /<disabledValue>/ G' 'policy has its parts in another order'
refused "$ADMX" 's/parentCategory ref="KestrelDeskAssist"/parentCategory ref="Kestrel"/' 'no category Kestrel'
refused "$ADMX" 's/class="Both"/class="Everybody"/' 'of the unknown class Everybody'
refused "$ADMX" 's/name="TrayIcon"/name="ServicePort"/' 'name ServicePort is missing or there twice'
refused "$ADMX" 's|https://kestrel.invalid/|https://elsewhere.invalid/|' "isn't our own"

# Texts and windows that don't fit.
refused "$ADMX" 's/string.TrayIconNever/string.TrayIconSeldom/' 'there is no string TrayIconSeldom'
refused "$ADMX" 's/presentation.TrayIcon/presentation.Icon/' 'there is no presentation Icon'
refused "$GERMAN" '/id="LanguageFrench"/ d' 'de-DE/KestrelDeskAssist.adml: there is no string LanguageFrench'
refused "$ENGLISH" 's|</stringTable>|<string id="Spare">x</string></stringTable>|' 'nothing uses the string Spare'
refused "$ENGLISH" 's|</presentationTable>|<presentation id="Spare"/></presentationTable>|' \
    'nothing uses the presentation Spare'
refused "$ENGLISH" 's/id="LanguageFrench"/id="LanguageGerman"/' 'id LanguageGerman is missing or there twice'
refused "$GERMAN" 's|>Deutsch<|><|' 'the string LanguageGerman is empty'
refused "$GERMAN" 's/refId="TrayIconMode"/refId="TrayIcon"/' "TrayIcon shows {'TrayIcon': 'enum'}"
refused "$GERMAN" 's/decimalTextBox/dropdownList/g' "ServicePort shows {'ServicePortNumber': 'enum'}"

# Policies for what the sources don't read, or read otherwise.
refused Include/UtilRegistry.h 's/L"TrayIcon"/L"IconMode"/' 'the sources have no value TrayIcon'
refused Include/UtilRegistry.h 's/Service\\\\Settings/Service\\\\Options/' "the sources don't read the key SOFTWARE"
refused "$ADMX" 's/valueName="Permission Required"/valueName="PermissionRequired"/' 'no value PermissionRequired'
refused "$ADMX" 's/valueName="TrayIcon"/valueName="Port"/' 'no policy for TrayIcon'
refused "$ADMX" 's/maxValue="65535"/maxValue="99999"/' "the port's range isn't that of the settings dialog"
refused tray/TrayIcon.h 's/TRAY_ICON_HIDDEN = 0/TRAY_ICON_HIDDEN = 3/' "aren't the sources' ['1', '2', '3']"
refused resources/CMakeLists.txt 's/^add_language_module(de/add_language_module(nl/' "aren't the sources' ['en', 'fr', 'nl']"
refused "$GERMAN" 's/defaultValue="6129"/defaultValue="6192"/' "the port shown at first isn't the product's"

# A language that is missing.
fresh_copy
rm "$copy/$GERMAN"
if "${CHECK[@]}" "$copy" 2>/dev/null; then
    exit 1
fi
