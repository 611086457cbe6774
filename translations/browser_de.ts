<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>AnalysisCommands</name>
    <message>
        <source>Anal&amp;yse Tempo and Key</source>
        <translation>Tempo und Tonart anal&amp;ysieren</translation>
    </message>
    <message>
        <source>Anal&amp;yse Tempo and Key of Selection</source>
        <translation>Tempo und Tonart der Auswahl anal&amp;ysieren</translation>
    </message>
    <message>
        <source>Con&amp;firm Tempo and Key</source>
        <translation>Tempo und Tonart &amp;bestätigen</translation>
    </message>
    <message>
        <source>&amp;Cancel</source>
        <translation>A&amp;bbrechen</translation>
    </message>
    <message>
        <source>Cancel the analysis</source>
        <translation>Analyse abbrechen</translation>
    </message>
    <message>
        <source>For tracks without tempo or key</source>
        <translation>Für Titel ohne Tempo oder Tonart</translation>
    </message>
    <message>
        <source>The program browser_analysis, which does it, is not installed</source>
        <translation>Das Programm browser_analysis, das dies erledigt, ist nicht installiert</translation>
    </message>
    <message>
        <source>Tempo and key are known already</source>
        <translation>Tempo und Tonart sind schon bekannt</translation>
    </message>
    <message>
        <source>1 track was analysed</source>
        <translation>1 Titel analysiert</translation>
    </message>
    <message numerus="yes">
        <source>%1 tracks were analysed</source>
        <translation>
            <numerusform>%1 Titel analysiert</numerusform>
            <numerusform>%1 Titel analysiert</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>, nothing was heard in %1</source>
        <translation>
            <numerusform>, in %1 war nichts zu hören</numerusform>
            <numerusform>, in %1 war nichts zu hören</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>, %1 could not be</source>
        <translation>
            <numerusform>, %1 nicht</numerusform>
            <numerusform>, %1 nicht</numerusform>
        </translation>
    </message>
    <message>
        <source>, cancelled</source>
        <translation>, abgebrochen</translation>
    </message>
    <message>
        <source>Analysing tempo and key…</source>
        <translation>Tempo und Tonart werden analysiert …</translation>
    </message>
    <message>
        <source>Analysing tempo and key: %1 of %2</source>
        <translation>Tempo und Tonart werden analysiert: %1 von %2</translation>
    </message>
    <message>
        <source>Analyse Tempo and Key</source>
        <translation>Tempo und Tonart analysieren</translation>
    </message>
</context>
<context>
    <name>Analytics</name>
    <message>
        <source>Sent: %1</source>
        <translation>Gesendet: %1</translation>
    </message>
    <message>
        <source>Kept back: %1</source>
        <translation>Zurückgehalten: %1</translation>
    </message>
</context>
<context>
    <name>BrowserWindow</name>
    <message>
        <source>Music Browser</source>
        <translation>Musikbrowser</translation>
    </message>
    <message>
        <source>&amp;Light Theme</source>
        <translation>&amp;Helles Design</translation>
    </message>
    <message>
        <source>&amp;Presets</source>
        <translation>&amp;Presets</translation>
    </message>
    <message>
        <source>Presets</source>
        <translation>Presets</translation>
    </message>
    <message>
        <source>Presets &amp;Library</source>
        <translation>Preset-&amp;Bibliothek</translation>
    </message>
    <message>
        <source>&amp;Filter</source>
        <translation>&amp;Filter</translation>
    </message>
    <message>
        <source>Filter</source>
        <translation>Filter</translation>
    </message>
    <message>
        <source>&amp;View</source>
        <translation>&amp;Ansicht</translation>
    </message>
    <message>
        <source>View</source>
        <translation>Ansicht</translation>
    </message>
    <message>
        <source>Track</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>Summary of the selected tracks</source>
        <translation>Zusammenfassung der ausgewählten Titel</translation>
    </message>
    <message>
        <source>&amp;Edit</source>
        <translation>&amp;Bearbeiten</translation>
    </message>
    <message>
        <source>Edit</source>
        <translation>Bearbeiten</translation>
    </message>
    <message>
        <source>&amp;Find…</source>
        <translation>&amp;Suchen …</translation>
    </message>
    <message>
        <source>&amp;Preferences…</source>
        <translation>&amp;Einstellungen …</translation>
    </message>
</context>
<context>
    <name>BulkEdits</name>
    <message>
        <source>&amp;Cancel</source>
        <translation>A&amp;bbrechen</translation>
    </message>
    <message>
        <source>Cancel the changes</source>
        <translation>Änderungen abbrechen</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message numerus="yes">
        <source>%1: %2 tracks</source>
        <translation>
            <numerusform>%1: %2 Titel</numerusform>
            <numerusform>%1: %2 Titel</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>, %1 were changed since and stay as they are</source>
        <translation>
            <numerusform>, %1 wurde seitdem geändert und bleibt, wie er ist</numerusform>
            <numerusform>, %1 wurden seitdem geändert und bleiben, wie sie sind</numerusform>
        </translation>
    </message>
    <message>
        <source>, cancelled</source>
        <translation>, abgebrochen</translation>
    </message>
    <message>
        <source>%1: 1 track</source>
        <translation>%1: 1 Titel</translation>
    </message>
    <message>
        <source>, 1 was changed since and stays as it is</source>
        <translation>, 1 wurde seitdem geändert und bleibt, wie er ist</translation>
    </message>
    <message>
        <source>Remove from Library</source>
        <translation>Aus der Bibliothek entfernen</translation>
    </message>
    <message>
        <source>%1 of %2 tracks done</source>
        <translation>%1 von %2 Titeln erledigt</translation>
    </message>
    <message>
        <source>%1 undone</source>
        <translation>%1 rückgängig gemacht</translation>
    </message>
</context>
<context>
    <name>CrateEditor</name>
    <message>
        <source>New Crate Folder</source>
        <translation>Neuer Crate-Ordner</translation>
    </message>
    <message>
        <source>New Crate</source>
        <translation>Neue Crate</translation>
    </message>
    <message>
        <source>untitled folder</source>
        <translation>Neuer Ordner</translation>
    </message>
    <message>
        <source>untitled crate</source>
        <translation>Neue Crate</translation>
    </message>
    <message>
        <source>Add to Crate</source>
        <translation>Zur Crate hinzufügen</translation>
    </message>
    <message>
        <source>Move Tracks</source>
        <translation>Titel bewegen</translation>
    </message>
    <message>
        <source>Remove from Crate</source>
        <translation>Aus der Crate entfernen</translation>
    </message>
    <message>
        <source>Prepare</source>
        <translation>Vorbereiten</translation>
    </message>
    <message>
        <source>Do Not Prepare</source>
        <translation>Nicht vorbereiten</translation>
    </message>
</context>
<context>
    <name>CrateTable</name>
    <message>
        <source>&amp;Add to Crate</source>
        <translation>&amp;Zur Crate hinzufügen</translation>
    </message>
    <message>
        <source>S&amp;how in Crate</source>
        <translation>&amp;In Crate zeigen</translation>
    </message>
    <message>
        <source>New Crate with &amp;Selection</source>
        <translation>Neue Crate aus &amp;Auswahl</translation>
    </message>
    <message>
        <source>&amp;Prepare</source>
        <translation>&amp;Vorbereiten</translation>
    </message>
    <message>
        <source>Re&amp;move from Crate</source>
        <translation>Aus der Crate &amp;entfernen</translation>
    </message>
    <message>
        <source>Move &amp;Up</source>
        <translation>Nach &amp;oben</translation>
    </message>
    <message>
        <source>Move &amp;Down</source>
        <translation>Nach &amp;unten</translation>
    </message>
    <message>
        <source>Sort in the &amp;Crate&apos;s Order</source>
        <translation>In der &amp;Reihenfolge der Crate sortieren</translation>
    </message>
    <message>
        <source>Add to Crate</source>
        <translation>Zur Crate hinzufügen</translation>
    </message>
    <message>
        <source>Show in Crate</source>
        <translation>In Crate zeigen</translation>
    </message>
    <message>
        <source>&amp;Crate</source>
        <translation>&amp;Crate</translation>
    </message>
    <message>
        <source>Crate</source>
        <translation>Crate</translation>
    </message>
    <message>
        <source>New Crate</source>
        <translation>Neue Crate</translation>
    </message>
    <message>
        <source>It Is in No Crate</source>
        <translation>In keiner Crate</translation>
    </message>
    <message>
        <source>1 track added to “%1”</source>
        <translation>1 Titel zu „%1“ hinzugefügt</translation>
    </message>
    <message numerus="yes">
        <source>%1 tracks added to “%2”</source>
        <translation>
            <numerusform>%1 Titel zu „%2“ hinzugefügt</numerusform>
            <numerusform>%1 Titel zu „%2“ hinzugefügt</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>, %1 there already</source>
        <translation>
            <numerusform>, %1 war schon da</numerusform>
            <numerusform>, %1 waren schon da</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>Crates</name>
    <message>
        <source>Prepare</source>
        <translation>Vorbereitet</translation>
    </message>
    <message>
        <source>History</source>
        <translation>Verlauf</translation>
    </message>
</context>
<context>
    <name>CratesPane</name>
    <message>
        <source>New &amp;Crate</source>
        <translation>Neue &amp;Crate</translation>
    </message>
    <message>
        <source>New Crate &amp;Folder</source>
        <translation>Neuer Crate-&amp;Ordner</translation>
    </message>
    <message>
        <source>&amp;Rename</source>
        <translation>&amp;Umbenennen</translation>
    </message>
    <message>
        <source>De&amp;lete</source>
        <translation>&amp;Löschen</translation>
    </message>
    <message>
        <source>Delete Crate</source>
        <translation>Crate löschen</translation>
    </message>
    <message numerus="yes">
        <source>Delete Crates</source>
        <translation>
            <numerusform>Crate löschen</numerusform>
            <numerusform>Crates löschen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 Crates</source>
        <translation>
            <numerusform>%1 Crate</numerusform>
            <numerusform>%1 Crates</numerusform>
        </translation>
    </message>
    <message>
        <source>Nothing has been played yet</source>
        <translation>Noch wurde nichts gespielt</translation>
    </message>
    <message>
        <source>Nothing is prepared.
Press P on tracks to have them here.</source>
        <translation>Nichts ist vorbereitet.
Mit P kommen Titel hierher.</translation>
    </message>
    <message>
        <source>No music in these crates</source>
        <translation>Keine Musik in diesen Crates</translation>
    </message>
    <message>
        <source>This crate is empty.
Drag tracks onto its name to keep them here.</source>
        <translation>Diese Crate ist leer.
Ziehen Sie Titel auf ihren Namen, um sie hier zu behalten.</translation>
    </message>
</context>
<context>
    <name>DemoHint</name>
    <message>
        <source>This is demo music. Add a folder of your own, or drop folders and files on the window.</source>
        <translation>Das ist Demomusik. Fügen Sie einen eigenen Ordner hinzu oder ziehen Sie Ordner und Dateien auf das Fenster.</translation>
    </message>
    <message>
        <source>Add Music Folder…</source>
        <translation>Musikordner hinzufügen …</translation>
    </message>
    <message>
        <source>Close the hint</source>
        <translation>Hinweis schließen</translation>
    </message>
</context>
<context>
    <name>FileCommands</name>
    <message>
        <source>&amp;Rescan Music Folders</source>
        <translation>Musikordner &amp;erneut durchsuchen</translation>
    </message>
    <message>
        <source>&amp;Cancel Import</source>
        <translation>Import &amp;abbrechen</translation>
    </message>
    <message>
        <source>Files That Could &amp;Not Be Read</source>
        <translation>&amp;Nicht lesbare Dateien</translation>
    </message>
    <message>
        <source>&amp;File</source>
        <translation>&amp;Datei</translation>
    </message>
    <message>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <source>&amp;Add Music Folder…</source>
        <translation>&amp;Musikordner hinzufügen …</translation>
    </message>
    <message>
        <source>Add &amp;Files…</source>
        <translation>&amp;Dateien hinzufügen …</translation>
    </message>
    <message>
        <source>Close &amp;Window</source>
        <translation>&amp;Fenster schließen</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Beenden</translation>
    </message>
    <message>
        <source>Add Music Folder</source>
        <translation>Musikordner hinzufügen</translation>
    </message>
    <message>
        <source>Add</source>
        <translation>Hinzufügen</translation>
    </message>
    <message>
        <source>Add Files</source>
        <translation>Dateien hinzufügen</translation>
    </message>
</context>
<context>
    <name>FileDialogs</name>
    <message>
        <source>Music</source>
        <translation>Musik</translation>
    </message>
    <message>
        <source>All Files</source>
        <translation>Alle Dateien</translation>
    </message>
</context>
<context>
    <name>FileNotes</name>
    <message>
        <source>cannot be analysed: %1</source>
        <translation>nicht zu analysieren: %1</translation>
    </message>
    <message>
        <source>cannot be read: %1</source>
        <translation>nicht lesbar: %1</translation>
    </message>
    <message>
        <source>cannot be written: %1</source>
        <translation>nicht zu schreiben: %1</translation>
    </message>
    <message>
        <source>cut off: the file ends before its music does</source>
        <translation>abgeschnitten: Die Datei endet vor ihrer Musik</translation>
    </message>
    <message>
        <source>damaged or cut off: no audio can be found in it</source>
        <translation>beschädigt oder abgeschnitten: Sie enthält kein Audio</translation>
    </message>
    <message>
        <source>empty file</source>
        <translation>leere Datei</translation>
    </message>
    <message>
        <source>it ended its analysis (%1)</source>
        <translation>sie hat die Analyse beendet (%1)</translation>
    </message>
    <message>
        <source>it ended its reader (%1)</source>
        <translation>sie hat das Lesen beendet (%1)</translation>
    </message>
    <message>
        <source>its analysis did not come to an end</source>
        <translation>die Analyse kam an kein Ende</translation>
    </message>
    <message>
        <source>its analysis failed</source>
        <translation>die Analyse ist fehlgeschlagen</translation>
    </message>
    <message>
        <source>its analysis made no sense</source>
        <translation>die Analyse ergab keinen Sinn</translation>
    </message>
    <message>
        <source>its boxes are nested more than %1 deep</source>
        <translation>ihre Boxen sind mehr als %1-fach verschachtelt</translation>
    </message>
    <message>
        <source>its reader gave no answer</source>
        <translation>das Lesen ergab keine Antwort</translation>
    </message>
    <message>
        <source>its sound would not be the same</source>
        <translation>ihr Klang wäre nicht mehr derselbe</translation>
    </message>
    <message>
        <source>length unknown: the audio is damaged or cut off</source>
        <translation>Länge unbekannt: Das Audio ist beschädigt oder abgeschnitten</translation>
    </message>
    <message>
        <source>neither a steady beat nor a key was heard</source>
        <translation>weder ein fester Takt noch eine Tonart war zu hören</translation>
    </message>
    <message>
        <source>no key was heard</source>
        <translation>keine Tonart war zu hören</translation>
    </message>
    <message>
        <source>no steady beat was heard</source>
        <translation>kein fester Takt war zu hören</translation>
    </message>
    <message>
        <source>no title, named after its file</source>
        <translation>kein Titel, nach der Datei benannt</translation>
    </message>
    <message>
        <source>not a regular file</source>
        <translation>keine gewöhnliche Datei</translation>
    </message>
    <message>
        <source>not an audio file</source>
        <translation>keine Audiodatei</translation>
    </message>
    <message>
        <source>the program that does it cannot be started</source>
        <translation>das zuständige Programm lässt sich nicht starten</translation>
    </message>
    <message>
        <source>this kind of file does not hold all of it</source>
        <translation>diese Art von Datei kann nicht alles davon enthalten</translation>
    </message>
    <message>
        <source>was changed by somebody else meanwhile</source>
        <translation>wurde inzwischen anderswo geändert</translation>
    </message>
    <message>
        <source>%1 cut to %2 of %3 characters</source>
        <translation>%1 auf %2 von %3 Zeichen gekürzt</translation>
    </message>
    <message>
        <source>%1 is no valid UTF-8, read as Latin-1</source>
        <translation>%1 ist kein gültiges UTF-8, als Latin-1 gelesen</translation>
    </message>
    <message>
        <source>%1 left out</source>
        <translation>%1 ausgelassen</translation>
    </message>
</context>
<context>
    <name>FilterBars</name>
    <message>
        <source>&amp;Add Filter…</source>
        <translation>Filter &amp;hinzufügen …</translation>
    </message>
    <message>
        <source>&amp;Edit Filters</source>
        <translation>Filter &amp;bearbeiten</translation>
    </message>
    <message>
        <source>&amp;Save Filters as Preset…</source>
        <translation>Filter als Preset &amp;speichern …</translation>
    </message>
    <message>
        <source>Enable All &amp;Filters</source>
        <translation>Alle Filter &amp;einschalten</translation>
    </message>
    <message>
        <source>&amp;Disable All Filters</source>
        <translation>Alle Filter &amp;ausschalten</translation>
    </message>
    <message>
        <source>&amp;Delete All Filters</source>
        <translation>Alle Filter &amp;löschen</translation>
    </message>
</context>
<context>
    <name>FilterStrip</name>
    <message>
        <source>Revert</source>
        <translation>Zurücksetzen</translation>
    </message>
    <message>
        <source>&amp;Narrow the List</source>
        <translation>Liste ein&amp;grenzen</translation>
    </message>
    <message>
        <source>Narrow  (/)</source>
        <translation>Eingrenzen  (/)</translation>
    </message>
    <message>
        <source>Narrow the list</source>
        <translation>Liste eingrenzen</translation>
    </message>
    <message>
        <source>&amp;Revert to Preset</source>
        <translation>Auf Preset &amp;zurücksetzen</translation>
    </message>
    <message>
        <source>Take the filters of the preset again</source>
        <translation>Wieder die Filter des Presets nehmen</translation>
    </message>
    <message>
        <source>%1, changed</source>
        <translation>%1, geändert</translation>
    </message>
</context>
<context>
    <name>FilterTypes</name>
    <message>
        <source>Tempo</source>
        <translation>Tempo</translation>
    </message>
    <message>
        <source>Key</source>
        <translation>Tonart</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>Artist</source>
        <translation>Künstler</translation>
    </message>
    <message>
        <source>Label</source>
        <translation>Label</translation>
    </message>
    <message>
        <source>Year</source>
        <translation>Jahr</translation>
    </message>
    <message>
        <source>Rating</source>
        <translation>Wertung</translation>
    </message>
    <message>
        <source>Length</source>
        <translation>Länge</translation>
    </message>
    <message>
        <source>Added</source>
        <translation>Hinzugefügt</translation>
    </message>
    <message>
        <source>Comment</source>
        <translation>Kommentar</translation>
    </message>
    <message>
        <source>File Kind</source>
        <translation>Dateiart</translation>
    </message>
    <message>
        <source>Same Tempo</source>
        <translation>Gleiches Tempo</translation>
    </message>
    <message>
        <source>Fitting Key</source>
        <translation>Passende Tonart</translation>
    </message>
    <message>
        <source>bpm</source>
        <translation>bpm</translation>
    </message>
    <message>
        <source>seconds</source>
        <translation>Sekunden</translation>
    </message>
    <message>
        <source>stars</source>
        <translation>Sterne</translation>
    </message>
</context>
<context>
    <name>GeneralPane</name>
    <message>
        <source>General</source>
        <translation>Allgemein</translation>
    </message>
    <message>
        <source>Music folders</source>
        <translation>Musikordner</translation>
    </message>
    <message>
        <source>Music folders:</source>
        <translation>Musikordner:</translation>
    </message>
    <message>
        <source>&amp;Add…</source>
        <translation>&amp;Hinzufügen …</translation>
    </message>
    <message>
        <source>Add a music folder</source>
        <translation>Einen Musikordner hinzufügen</translation>
    </message>
    <message>
        <source>&amp;Remove</source>
        <translation>&amp;Entfernen</translation>
    </message>
    <message>
        <source>Remove the music folder</source>
        <translation>Den Musikordner entfernen</translation>
    </message>
    <message>
        <source>Imported at once, and looked through whenever the browser starts. A folder that is removed here is looked through no more; its tracks stay.</source>
        <translation>Werden sofort importiert und bei jedem Start des Browsers durchsucht. Ein hier entfernter Ordner wird nicht mehr durchsucht; seine Titel bleiben.</translation>
    </message>
    <message>
        <source>Dark</source>
        <translation>Dunkel</translation>
    </message>
    <message>
        <source>Light</source>
        <translation>Hell</translation>
    </message>
    <message>
        <source>Theme</source>
        <translation>Design</translation>
    </message>
    <message>
        <source>Theme:</source>
        <translation>Design:</translation>
    </message>
    <message>
        <source>Add Music Folder</source>
        <translation>Musikordner hinzufügen</translation>
    </message>
    <message>
        <source>Add</source>
        <translation>Hinzufügen</translation>
    </message>
</context>
<context>
    <name>GenreDialog</name>
    <message>
        <source>&amp;Rename</source>
        <translation>&amp;Umbenennen</translation>
    </message>
    <message>
        <source>Rename Genre</source>
        <translation>Genre umbenennen</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>New name</source>
        <translation>Neuer Name</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>&amp;Genre:</source>
        <translation>&amp;Genre:</translation>
    </message>
    <message>
        <source>&amp;New name:</source>
        <translation>&amp;Neuer Name:</translation>
    </message>
</context>
<context>
    <name>LibraryBar</name>
    <message>
        <source>Library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>Summary of the library</source>
        <translation>Zusammenfassung der Bibliothek</translation>
    </message>
</context>
<context>
    <name>LibraryEditor</name>
    <message>
        <source>Change Rating</source>
        <translation>Wertung ändern</translation>
    </message>
    <message>
        <source>Change %1</source>
        <translation>%1 ändern</translation>
    </message>
    <message>
        <source>Confirm Tempo and Key</source>
        <translation>Tempo und Tonart bestätigen</translation>
    </message>
    <message>
        <source>Rename Genre</source>
        <translation>Genre umbenennen</translation>
    </message>
    <message>
        <source>A genre needs a name.</source>
        <translation>Ein Genre braucht einen Namen.</translation>
    </message>
    <message>
        <source>There is a genre “%1” already.</source>
        <translation>Das Genre „%1“ gibt es schon.</translation>
    </message>
    <message>
        <source>Remove from Library</source>
        <translation>Aus der Bibliothek entfernen</translation>
    </message>
    <message>
        <source>Locate File</source>
        <translation>Datei zuweisen</translation>
    </message>
</context>
<context>
    <name>LibraryPlaces</name>
    <message>
        <source>All Tracks</source>
        <translation>Alle Titel</translation>
    </message>
    <message>
        <source>Recently Added</source>
        <translation>Zuletzt hinzugefügt</translation>
    </message>
    <message>
        <source>Duplicates</source>
        <translation>Duplikate</translation>
    </message>
    <message>
        <source>Genres</source>
        <translation>Genres</translation>
    </message>
    <message>
        <source>Shop</source>
        <translation>Shop</translation>
    </message>
</context>
<context>
    <name>LibrarySearchViewController</name>
    <message>
        <source>Tracks</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>Artists</source>
        <translation>Künstler</translation>
    </message>
    <message>
        <source>Albums</source>
        <translation>Alben</translation>
    </message>
    <message>
        <source>Genres</source>
        <translation>Genres</translation>
    </message>
    <message>
        <source>Labels</source>
        <translation>Labels</translation>
    </message>
    <message>
        <source>Presets</source>
        <translation>Presets</translation>
    </message>
    <message>
        <source>Crates</source>
        <translation>Crates</translation>
    </message>
</context>
<context>
    <name>ListCommands</name>
    <message>
        <source>Rename &amp;Genre…</source>
        <translation>&amp;Genre umbenennen …</translation>
    </message>
    <message>
        <source>&amp;Why Is This Track in the List?</source>
        <translation>&amp;Warum ist dieser Titel in der Liste?</translation>
    </message>
    <message>
        <source>No Stars</source>
        <translation>Keine Sterne</translation>
    </message>
    <message>
        <source>1 Star</source>
        <translation>1 Stern</translation>
    </message>
    <message numerus="yes">
        <source>%1 Stars</source>
        <translation>
            <numerusform>%1 Stern</numerusform>
            <numerusform>%1 Sterne</numerusform>
        </translation>
    </message>
    <message>
        <source>&amp;Rating</source>
        <translation>&amp;Wertung</translation>
    </message>
    <message>
        <source>Rating</source>
        <translation>Wertung</translation>
    </message>
    <message>
        <source>Why “%1” is in the list</source>
        <translation>Warum „%1“ in der Liste ist</translation>
    </message>
</context>
<context>
    <name>ListSummary</name>
    <message>
        <source>1 track</source>
        <translation>1 Titel</translation>
    </message>
    <message numerus="yes">
        <source>%1 tracks</source>
        <translation>
            <numerusform>%1 Titel</numerusform>
            <numerusform>%1 Titel</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 skipped</source>
        <translation>
            <numerusform>%1 übersprungen</numerusform>
            <numerusform>%1 übersprungen</numerusform>
        </translation>
    </message>
    <message>
        <source>No track fits this</source>
        <translation>Kein Titel passt dazu</translation>
    </message>
</context>
<context>
    <name>MessageStrip</name>
    <message numerus="yes">
        <source>… and %1 more</source>
        <translation>
            <numerusform>… und %1 weitere</numerusform>
            <numerusform>… und %1 weitere</numerusform>
        </translation>
    </message>
    <message>
        <source>Show &amp;Messages</source>
        <translation>&amp;Meldungen zeigen</translation>
    </message>
    <message>
        <source>Messages</source>
        <translation>Meldungen</translation>
    </message>
    <message>
        <source>Import failed: %1</source>
        <translation>Import fehlgeschlagen: %1</translation>
    </message>
    <message>
        <source>1 file could not be read</source>
        <translation>1 Datei konnte nicht gelesen werden</translation>
    </message>
    <message numerus="yes">
        <source>%1 files could not be read</source>
        <translation>
            <numerusform>%1 Datei konnte nicht gelesen werden</numerusform>
            <numerusform>%1 Dateien konnten nicht gelesen werden</numerusform>
        </translation>
    </message>
    <message>
        <source>The tags of 1 file could not be written</source>
        <translation>Die Tags von 1 Datei konnten nicht geschrieben werden</translation>
    </message>
    <message numerus="yes">
        <source>The tags of %1 files could not be written</source>
        <translation>
            <numerusform>Die Tags von %1 Datei konnten nicht geschrieben werden</numerusform>
            <numerusform>Die Tags von %1 Dateien konnten nicht geschrieben werden</numerusform>
        </translation>
    </message>
    <message>
        <source>1 file could not be analysed</source>
        <translation>1 Datei konnte nicht analysiert werden</translation>
    </message>
    <message numerus="yes">
        <source>%1 files could not be analysed</source>
        <translation>
            <numerusform>%1 Datei konnte nicht analysiert werden</numerusform>
            <numerusform>%1 Dateien konnten nicht analysiert werden</numerusform>
        </translation>
    </message>
    <message>
        <source>The file is not there.</source>
        <translation>Die Datei ist nicht da.</translation>
    </message>
    <message>
        <source>The file holds no audio that can be read.</source>
        <translation>Die Datei enthält kein lesbares Audio.</translation>
    </message>
    <message>
        <source>Its server does not answer, leads to where it may not, or sends no audio.</source>
        <translation>Der Server antwortet nicht, führt an einen unerlaubten Ort oder sendet kein Audio.</translation>
    </message>
    <message>
        <source>%1 cannot be played</source>
        <translation>%1 kann nicht abgespielt werden</translation>
    </message>
</context>
<context>
    <name>MissingFiles</name>
    <message>
        <source>&amp;Locate File…</source>
        <translation>&amp;Datei zuweisen …</translation>
    </message>
    <message>
        <source>Find &amp;Missing Files…</source>
        <translation>&amp;Fehlende Dateien suchen …</translation>
    </message>
    <message>
        <source>Locate “%1”</source>
        <translation>Datei für „%1“</translation>
    </message>
    <message>
        <source>Use</source>
        <translation>Verwenden</translation>
    </message>
    <message>
        <source>“%1” cannot be used</source>
        <translation>„%1“ kann nicht verwendet werden</translation>
    </message>
    <message>
        <source>This file sounds like another recording than “%1”</source>
        <translation>Diese Datei klingt nach einer anderen Aufnahme als „%1“</translation>
    </message>
    <message>
        <source>%1
Rating, comment and crates of the track stay.</source>
        <translation>%1
Wertung, Kommentar und Crates des Titels bleiben.</translation>
    </message>
    <message>
        <source>Use It Anyway</source>
        <translation>Trotzdem verwenden</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>“%1” has its file again</source>
        <translation>„%1“ hat wieder eine Datei</translation>
    </message>
    <message>
        <source>Find Missing Files In</source>
        <translation>Fehlende Dateien suchen in</translation>
    </message>
    <message>
        <source>Find</source>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>Is this the file of “%1”?</source>
        <translation>Ist das die Datei von „%1“?</translation>
    </message>
    <message>
        <source>Missing: %1
Found: %2
They begin alike by %3%.</source>
        <translation>Fehlt: %1
Gefunden: %2
Sie beginnen zu %3 % gleich.</translation>
    </message>
    <message>
        <source>Use This File</source>
        <translation>Diese Datei verwenden</translation>
    </message>
    <message>
        <source>Skip</source>
        <translation>Überspringen</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stopp</translation>
    </message>
</context>
<context>
    <name>MusicImport</name>
    <message>
        <source>Progress of the import</source>
        <translation>Fortschritt des Imports</translation>
    </message>
    <message>
        <source>&amp;Cancel</source>
        <translation>A&amp;bbrechen</translation>
    </message>
    <message>
        <source>Cancel the import</source>
        <translation>Import abbrechen</translation>
    </message>
    <message>
        <source>Cancelling the import…</source>
        <translation>Import wird abgebrochen …</translation>
    </message>
    <message>
        <source>Looking for music…</source>
        <translation>Musik wird gesucht …</translation>
    </message>
    <message>
        <source>Importing %1 of %2</source>
        <translation>Import: %1 von %2</translation>
    </message>
    <message>
        <source>about %1 s left</source>
        <translation>noch etwa %1 s</translation>
    </message>
    <message>
        <source>about %1 min left</source>
        <translation>noch etwa %1 min</translation>
    </message>
    <message>
        <source>Import failed: %1</source>
        <translation>Import fehlgeschlagen: %1</translation>
    </message>
    <message>
        <source>Import cancelled</source>
        <translation>Import abgebrochen</translation>
    </message>
    <message numerus="yes">
        <source>%1 added</source>
        <translation>
            <numerusform>%1 neu</numerusform>
            <numerusform>%1 neu</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 updated</source>
        <translation>
            <numerusform>%1 aktualisiert</numerusform>
            <numerusform>%1 aktualisiert</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 missing</source>
        <translation>
            <numerusform>%1 fehlt</numerusform>
            <numerusform>%1 fehlen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 back</source>
        <translation>
            <numerusform>%1 wieder da</numerusform>
            <numerusform>%1 wieder da</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 found again</source>
        <translation>
            <numerusform>%1 wiedergefunden</numerusform>
            <numerusform>%1 wiedergefunden</numerusform>
        </translation>
    </message>
    <message>
        <source>Up to date</source>
        <translation>Auf dem neuesten Stand</translation>
    </message>
</context>
<context>
    <name>PlaceNavigator</name>
    <message>
        <source>&amp;Back</source>
        <translation>&amp;Zurück</translation>
    </message>
    <message>
        <source>&amp;Forward</source>
        <translation>&amp;Vor</translation>
    </message>
    <message>
        <source>Places as La&amp;yers</source>
        <translation>Orte als &amp;Ebenen</translation>
    </message>
    <message>
        <source>Library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>No music here</source>
        <translation>Keine Musik hier</translation>
    </message>
    <message>
        <source>&amp;Go</source>
        <translation>&amp;Gehe zu</translation>
    </message>
    <message>
        <source>Go</source>
        <translation>Gehe zu</translation>
    </message>
    <message>
        <source>&amp;Artist</source>
        <translation>&amp;Künstler</translation>
    </message>
    <message>
        <source>A&amp;lbum</source>
        <translation>&amp;Album</translation>
    </message>
    <message>
        <source>Lab&amp;el</source>
        <translation>&amp;Label</translation>
    </message>
    <message>
        <source>What &amp;Sounds Like This</source>
        <translation>Was &amp;so klingt</translation>
    </message>
</context>
<context>
    <name>PlaceSteps</name>
    <message>
        <source>Untitled</source>
        <translation>Ohne Titel</translation>
    </message>
    <message>
        <source>Sounds Like “%1”</source>
        <translation>Klingt wie „%1“</translation>
    </message>
    <message>
        <source>Artist “%1”</source>
        <translation>Künstler „%1“</translation>
    </message>
    <message>
        <source>Album “%1”</source>
        <translation>Album „%1“</translation>
    </message>
    <message>
        <source>Genre “%1”</source>
        <translation>Genre „%1“</translation>
    </message>
    <message>
        <source>Label “%1”</source>
        <translation>Label „%1“</translation>
    </message>
    <message>
        <source>What Sounds Like This</source>
        <translation>Was so klingt</translation>
    </message>
</context>
<context>
    <name>PlayerStrip</name>
    <message>
        <source>Shuffle</source>
        <translation>Zufall</translation>
    </message>
    <message>
        <source>Play the list in any order</source>
        <translation>Die Liste in zufälliger Folge spielen</translation>
    </message>
    <message>
        <source>Volume</source>
        <translation>Lautstärke</translation>
    </message>
    <message>
        <source>Player</source>
        <translation>Player</translation>
    </message>
    <message>
        <source>Previous track</source>
        <translation>Vorheriger Titel</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Play</translation>
    </message>
    <message>
        <source>Preview or stop</source>
        <translation>Vorhören oder anhalten</translation>
    </message>
    <message>
        <source>Next track</source>
        <translation>Nächster Titel</translation>
    </message>
    <message>
        <source>Cover</source>
        <translation>Cover</translation>
    </message>
    <message>
        <source>Time</source>
        <translation>Zeit</translation>
    </message>
    <message>
        <source>Time left</source>
        <translation>Restzeit</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stopp</translation>
    </message>
    <message>
        <source>Stem %1</source>
        <translation>Stem %1</translation>
    </message>
    <message>
        <source>Mute</source>
        <translation>Stumm</translation>
    </message>
    <message>
        <source>Mute %1</source>
        <translation>%1 stumm</translation>
    </message>
    <message>
        <source>Solo</source>
        <translation>Solo</translation>
    </message>
    <message>
        <source>Solo %1</source>
        <translation>%1 solo</translation>
    </message>
    <message>
        <source>Gain of %1</source>
        <translation>Pegel von %1</translation>
    </message>
</context>
<context>
    <name>PresetCommands</name>
    <message>
        <source>New &amp;Folder</source>
        <translation>Neuer &amp;Ordner</translation>
    </message>
    <message>
        <source>&amp;Copy</source>
        <translation>&amp;Kopieren</translation>
    </message>
    <message>
        <source>&amp;Paste</source>
        <translation>&amp;Einfügen</translation>
    </message>
    <message>
        <source>&amp;Duplicate</source>
        <translation>&amp;Duplizieren</translation>
    </message>
    <message>
        <source>De&amp;lete</source>
        <translation>&amp;Löschen</translation>
    </message>
    <message>
        <source>&amp;Rename</source>
        <translation>&amp;Umbenennen</translation>
    </message>
</context>
<context>
    <name>PresetLibrary</name>
    <message>
        <source>This preset is not available here: it asks for “%1”, which tracks do not have.</source>
        <translation>Dieses Preset ist hier nicht verfügbar: Es fragt nach „%1“, das Titel nicht haben.</translation>
    </message>
</context>
<context>
    <name>Presets</name>
    <message>
        <source>New Preset</source>
        <translation>Neues Preset</translation>
    </message>
</context>
<context>
    <name>Preview</name>
    <message>
        <source>Preview</source>
        <translation>Vorhören</translation>
    </message>
    <message>
        <source>The sound device is gone: choose another one in the menu Play</source>
        <translation>Das Audiogerät ist weg: Wählen Sie ein anderes im Menü Wiedergabe</translation>
    </message>
    <message>
        <source>This sound device cannot be opened</source>
        <translation>Dieses Audiogerät kann nicht geöffnet werden</translation>
    </message>
    <message>
        <source>No sound card</source>
        <translation>Keine Soundkarte</translation>
    </message>
    <message>
        <source>The System&apos;s Own</source>
        <translation>Systemstandard</translation>
    </message>
    <message>
        <source>&amp;Play</source>
        <translation>&amp;Wiedergabe</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Wiedergabe</translation>
    </message>
    <message>
        <source>&amp;Preview or Stop</source>
        <translation>&amp;Vorhören oder anhalten</translation>
    </message>
    <message>
        <source>&amp;Next Track</source>
        <translation>&amp;Nächster Titel</translation>
    </message>
    <message>
        <source>P&amp;revious Track</source>
        <translation>Vo&amp;rheriger Titel</translation>
    </message>
    <message>
        <source>&amp;Output</source>
        <translation>&amp;Ausgabe</translation>
    </message>
    <message>
        <source>Output</source>
        <translation>Ausgabe</translation>
    </message>
    <message>
        <source>Start at the &amp;Loudest Part</source>
        <translation>An der &amp;lautesten Stelle beginnen</translation>
    </message>
    <message>
        <source>&amp;Shuffle</source>
        <translation>&amp;Zufall</translation>
    </message>
    <message>
        <source>&amp;Continue with the Next One</source>
        <translation>&amp;Mit dem nächsten fortfahren</translation>
    </message>
    <message>
        <source>No sound card: tracks cannot be previewed</source>
        <translation>Keine Soundkarte: Titel können nicht vorgehört werden</translation>
    </message>
    <message>
        <source>Opening %1…</source>
        <translation>%1 wird geöffnet …</translation>
    </message>
    <message>
        <source>Playing %1  ·  %2</source>
        <translation>Spielt %1  ·  %2</translation>
    </message>
    <message>
        <source>Stopped %1  ·  %2</source>
        <translation>Angehalten: %1  ·  %2</translation>
    </message>
    <message>
        <source>%1 cannot be played</source>
        <translation>%1 kann nicht abgespielt werden</translation>
    </message>
    <message>
        <source>Finished %1</source>
        <translation>Zu Ende: %1</translation>
    </message>
</context>
<context>
    <name>PrivacyPane</name>
    <message>
        <source>Privacy</source>
        <translation>Datenschutz</translation>
    </message>
    <message>
        <source>&amp;Send usage statistics</source>
        <translation>&amp;Nutzungsstatistik senden</translation>
    </message>
    <message>
        <source>Which views are opened and how many tracks an import adds; never names of tracks, files or people. Nothing is sent unless this is on. What was sent, or would have been, stands below.</source>
        <translation>Welche Ansichten geöffnet werden und wie viele Titel ein Import bringt; nie Namen von Titeln, Dateien oder Personen. Nichts wird gesendet, solange dies aus ist. Was gesendet wurde oder worden wäre, steht darunter.</translation>
    </message>
    <message>
        <source>Usage statistics</source>
        <translation>Nutzungsstatistik</translation>
    </message>
</context>
<context>
    <name>SearchPopover</name>
    <message>
        <source>Search  (Ctrl+F)</source>
        <translation>Suchen  (Strg+F)</translation>
    </message>
    <message>
        <source>Search the library</source>
        <translation>Bibliothek durchsuchen</translation>
    </message>
</context>
<context>
    <name>SelectionSummary</name>
    <message numerus="yes">
        <source>%1 selected</source>
        <translation>
            <numerusform>%1 ausgewählt</numerusform>
            <numerusform>%1 ausgewählt</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>ShopFacets</name>
    <message>
        <source>Genres and keys with counts</source>
        <translation>Genres und Tonarten mit Anzahl</translation>
    </message>
    <message>
        <source>Key</source>
        <translation>Tonart</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>1 track</source>
        <translation>1 Titel</translation>
    </message>
    <message numerus="yes">
        <source>%1 tracks</source>
        <translation>
            <numerusform>%1 Titel</numerusform>
            <numerusform>%1 Titel</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>ShopHosts</name>
    <message>
        <source>The shop has not said yet from where previews may be played</source>
        <translation>Der Shop hat noch nicht gesagt, woher Hörproben gespielt werden dürfen</translation>
    </message>
    <message>
        <source>This track has no preview</source>
        <translation>Dieser Titel hat keine Hörprobe</translation>
    </message>
    <message>
        <source>Previews are played over https only</source>
        <translation>Hörproben werden nur über https gespielt</translation>
    </message>
    <message>
        <source>The shop does not name %1 as a place for previews</source>
        <translation>Der Shop nennt %1 nicht als Ort für Hörproben</translation>
    </message>
</context>
<context>
    <name>ShopPane</name>
    <message>
        <source>&amp;Search the Shop</source>
        <translation>Shop &amp;durchsuchen</translation>
    </message>
    <message>
        <source>Search the shop  (/)</source>
        <translation>Shop durchsuchen  (/)</translation>
    </message>
    <message>
        <source>Search the shop</source>
        <translation>Shop durchsuchen</translation>
    </message>
    <message>
        <source>What the shop says</source>
        <translation>Was der Shop sagt</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Noch einmal</translation>
    </message>
    <message>
        <source>Tracks of the shop</source>
        <translation>Titel des Shops</translation>
    </message>
</context>
<context>
    <name>ShopPreferences</name>
    <message>
        <source>Shop</source>
        <translation>Shop</translation>
    </message>
    <message>
        <source>Address of the shop</source>
        <translation>Adresse des Shops</translation>
    </message>
    <message>
        <source>Catalogue:</source>
        <translation>Katalog:</translation>
    </message>
    <message>
        <source>About the address</source>
        <translation>Zur Adresse</translation>
    </message>
    <message>
        <source>A shop&apos;s catalogue in PostgreSQL, shown beside the library. Who asks, and with which password, stands in the file ~/.pgpass; parts of a catalogue are separated by “;”, servers that hold the same part by “|”. Empty: there is no shop.</source>
        <translation>Der Katalog eines Shops in PostgreSQL, neben der Bibliothek gezeigt. Benutzer und Passwort stehen in der Datei ~/.pgpass; Teile eines Katalogs werden durch „;“ getrennt, Server mit demselben Teil durch „|“. Leer: Es gibt keinen Shop.</translation>
    </message>
    <message>
        <source>Asking…</source>
        <translation>Anfrage läuft …</translation>
    </message>
    <message numerus="yes">
        <source>The shop answers: it has about %1 tracks.</source>
        <translation>
            <numerusform>Der Shop antwortet: Er hat etwa %1 Titel.</numerusform>
            <numerusform>Der Shop antwortet: Er hat etwa %1 Titel.</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>ShopTableModel</name>
    <message>
        <source>Title</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>Artist</source>
        <translation>Künstler</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>BPM</source>
        <translation>BPM</translation>
    </message>
    <message>
        <source>Key</source>
        <translation>Tonart</translation>
    </message>
    <message>
        <source>Length</source>
        <translation>Länge</translation>
    </message>
    <message>
        <source>Label</source>
        <translation>Label</translation>
    </message>
    <message>
        <source>Released</source>
        <translation>Erschienen</translation>
    </message>
    <message>
        <source>Price</source>
        <translation>Preis</translation>
    </message>
    <message>
        <source>In My Library</source>
        <translation>Vorhanden</translation>
    </message>
    <message>
        <source>In my library</source>
        <translation>In meiner Bibliothek</translation>
    </message>
    <message>
        <source>✓</source>
        <translation>✓</translation>
    </message>
</context>
<context>
    <name>SoundPane</name>
    <message>
        <source>Sound</source>
        <translation>Audio</translation>
    </message>
    <message>
        <source>Sound device</source>
        <translation>Audiogerät</translation>
    </message>
    <message>
        <source>Play through:</source>
        <translation>Ausgabe über:</translation>
    </message>
    <message>
        <source>Play all tracks &amp;equally loud</source>
        <translation>Alle Titel &amp;gleich laut spielen</translation>
    </message>
    <message>
        <source>Each track is measured once, together with its waveform.</source>
        <translation>Jeder Titel wird einmal gemessen, zusammen mit seiner Wellenform.</translation>
    </message>
    <message>
        <source>Start at the &amp;loudest part</source>
        <translation>An der &amp;lautesten Stelle beginnen</translation>
    </message>
    <message>
        <source>No sound card</source>
        <translation>Keine Soundkarte</translation>
    </message>
    <message>
        <source>The system&apos;s own</source>
        <translation>Systemstandard</translation>
    </message>
    <message>
        <source>%1 (not there)</source>
        <translation>%1 (nicht da)</translation>
    </message>
</context>
<context>
    <name>SourceColumn</name>
    <message>
        <source>Library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>Presets</source>
        <translation>Presets</translation>
    </message>
    <message>
        <source>Crates</source>
        <translation>Crates</translation>
    </message>
    <message>
        <source>No presets yet.
The button above makes a folder; “Save as Preset” makes a preset of a genre.</source>
        <translation>Noch keine Presets.
Der Knopf oben macht einen Ordner; „Als Preset speichern“ macht aus einem Genre ein Preset.</translation>
    </message>
    <message>
        <source>&amp;Save as Preset</source>
        <translation>Als Preset &amp;speichern</translation>
    </message>
    <message>
        <source>%1 is not available: it looks for something that this library does not know</source>
        <translation>%1 ist nicht verfügbar: Es sucht etwas, das diese Bibliothek nicht kennt</translation>
    </message>
    <message>
        <source>No music in the library yet</source>
        <translation>Noch keine Musik in der Bibliothek</translation>
    </message>
    <message>
        <source>No music here</source>
        <translation>Keine Musik hier</translation>
    </message>
    <message numerus="yes">
        <source>%1 Presets</source>
        <translation>
            <numerusform>%1 Preset</numerusform>
            <numerusform>%1 Presets</numerusform>
        </translation>
    </message>
    <message>
        <source>No music in this preset</source>
        <translation>Keine Musik in diesem Preset</translation>
    </message>
    <message>
        <source>%1 is not available:
it looks for something that this library does not know</source>
        <translation>%1 ist nicht verfügbar:
Es sucht etwas, das diese Bibliothek nicht kennt</translation>
    </message>
    <message>
        <source>This folder is empty.
Drag presets onto it to keep them here.</source>
        <translation>Dieser Ordner ist leer.
Ziehen Sie Presets darauf, um sie hier zu behalten.</translation>
    </message>
    <message>
        <source>These are too many presets to show together.
Pick a few of them.</source>
        <translation>Das sind zu viele Presets auf einmal.
Wählen Sie ein paar davon.</translation>
    </message>
</context>
<context>
    <name>StartingPresets</name>
    <message>
        <source>Four Stars and More</source>
        <translation>Vier Sterne und mehr</translation>
    </message>
    <message>
        <source>Rating</source>
        <translation>Wertung</translation>
    </message>
    <message>
        <source>Added</source>
        <translation>Hinzugefügt</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>Tempo</source>
        <translation>Tempo</translation>
    </message>
    <message>
        <source>Below %1</source>
        <translation>Unter %1</translation>
    </message>
    <message>
        <source>%1 to %2</source>
        <translation>%1 bis %2</translation>
    </message>
    <message>
        <source>%1 and More</source>
        <translation>%1 und mehr</translation>
    </message>
    <message>
        <source>Genres</source>
        <translation>Genres</translation>
    </message>
    <message>
        <source>Keys</source>
        <translation>Tonarten</translation>
    </message>
    <message>
        <source>Minor</source>
        <translation>Moll</translation>
    </message>
    <message>
        <source>Mode</source>
        <translation>Tongeschlecht</translation>
    </message>
    <message>
        <source>Major</source>
        <translation>Dur</translation>
    </message>
    <message>
        <source>Around %1</source>
        <translation>Um %1</translation>
    </message>
    <message>
        <source>Key</source>
        <translation>Tonart</translation>
    </message>
    <message>
        <source>Today</source>
        <translation>Heute</translation>
    </message>
    <message>
        <source>Last 7 Days</source>
        <translation>Letzte 7 Tage</translation>
    </message>
    <message>
        <source>Last 30 Days</source>
        <translation>Letzte 30 Tage</translation>
    </message>
    <message>
        <source>This Year</source>
        <translation>Dieses Jahr</translation>
    </message>
    <message>
        <source>Without</source>
        <translation>Ohne</translation>
    </message>
    <message>
        <source>No %1</source>
        <translation>Kein %1</translation>
    </message>
    <message>
        <source>No %1, 128 and More</source>
        <translation>Kein %1, 128 und mehr</translation>
    </message>
    <message>
        <source>No Minor Keys</source>
        <translation>Kein Moll</translation>
    </message>
</context>
<context>
    <name>TextEditor</name>
    <message>
        <source>holds…</source>
        <translation>enthält …</translation>
    </message>
    <message>
        <source>%1 holds</source>
        <translation>%1 enthält</translation>
    </message>
</context>
<context>
    <name>TrackCommands</name>
    <message>
        <source>Edit &amp;Cell</source>
        <translation>&amp;Zelle bearbeiten</translation>
    </message>
    <message>
        <source>&amp;Write Tags</source>
        <translation>&amp;Tags schreiben</translation>
    </message>
    <message>
        <source>Remove from Li&amp;brary</source>
        <translation>&amp;Aus der Bibliothek entfernen</translation>
    </message>
    <message>
        <source>&amp;Cancel</source>
        <translation>A&amp;bbrechen</translation>
    </message>
    <message>
        <source>Cancel writing tags</source>
        <translation>Schreiben der Tags abbrechen</translation>
    </message>
    <message>
        <source>&amp;Track</source>
        <translation>&amp;Titel</translation>
    </message>
    <message>
        <source>Track</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>&amp;Edit</source>
        <translation>&amp;Bearbeiten</translation>
    </message>
    <message>
        <source>Edit</source>
        <translation>Bearbeiten</translation>
    </message>
    <message>
        <source>Edit %1</source>
        <translation>%1 bearbeiten</translation>
    </message>
    <message>
        <source>1 track removed; its file stays where it is</source>
        <translation>1 Titel entfernt; seine Datei bleibt, wo sie ist</translation>
    </message>
    <message numerus="yes">
        <source>%1 tracks removed; their files stay where they are</source>
        <translation>
            <numerusform>%1 Titel entfernt; seine Datei bleibt, wo sie ist</numerusform>
            <numerusform>%1 Titel entfernt; ihre Dateien bleiben, wo sie sind</numerusform>
        </translation>
    </message>
    <message>
        <source>The tags of 1 file were written</source>
        <translation>Die Tags von 1 Datei wurden geschrieben</translation>
    </message>
    <message numerus="yes">
        <source>The tags of %1 files were written</source>
        <translation>
            <numerusform>Die Tags von %1 Datei wurden geschrieben</numerusform>
            <numerusform>Die Tags von %1 Dateien wurden geschrieben</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>, %1 could not be</source>
        <translation>
            <numerusform>, %1 nicht</numerusform>
            <numerusform>, %1 nicht</numerusform>
        </translation>
    </message>
    <message>
        <source>, cancelled</source>
        <translation>, abgebrochen</translation>
    </message>
    <message>
        <source>Writing tags: %1 of %2</source>
        <translation>Tags werden geschrieben: %1 von %2</translation>
    </message>
</context>
<context>
    <name>TrackDelegate</name>
    <message>
        <source>Mixed</source>
        <translation>Gemischt</translation>
    </message>
</context>
<context>
    <name>TrackFacetEditor</name>
    <message>
        <source>Keys That Fit %1</source>
        <translation>Tonarten, die zu %1 passen</translation>
    </message>
    <message>
        <source>The key of the track that plays or is selected, its neighbours on the wheel and its relative</source>
        <translation>Die Tonart des gespielten oder ausgewählten Titels, ihre Nachbarn auf dem Rad und ihre Parallele</translation>
    </message>
</context>
<context>
    <name>TrackFactsSection</name>
    <message>
        <source>%1 BPM</source>
        <translation>%1 BPM</translation>
    </message>
    <message>
        <source>Track</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>Cover</source>
        <translation>Cover</translation>
    </message>
    <message>
        <source>No track is selected</source>
        <translation>Kein Titel ausgewählt</translation>
    </message>
    <message numerus="yes">
        <source>%1 tracks</source>
        <translation>
            <numerusform>%1 Titel</numerusform>
            <numerusform>%1 Titel</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>TrackFields</name>
    <message>
        <source>Title</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>Artist</source>
        <translation>Künstler</translation>
    </message>
    <message>
        <source>Album</source>
        <translation>Album</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>Label</source>
        <translation>Label</translation>
    </message>
    <message>
        <source>Year</source>
        <translation>Jahr</translation>
    </message>
    <message>
        <source>Key</source>
        <translation>Tonart</translation>
    </message>
    <message>
        <source>BPM</source>
        <translation>BPM</translation>
    </message>
    <message>
        <source>Comment</source>
        <translation>Kommentar</translation>
    </message>
</context>
<context>
    <name>TrackFileSection</name>
    <message>
        <source>%1 kHz</source>
        <translation>%1 kHz</translation>
    </message>
    <message>
        <source>%1 kbit/s</source>
        <translation>%1 kbit/s</translation>
    </message>
    <message>
        <source>mono</source>
        <translation>mono</translation>
    </message>
    <message>
        <source>stereo</source>
        <translation>stereo</translation>
    </message>
    <message numerus="yes">
        <source>%1 channels</source>
        <translation>
            <numerusform>%1 Kanal</numerusform>
            <numerusform>%1 Kanäle</numerusform>
        </translation>
    </message>
    <message>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <source>Path</source>
        <translation>Pfad</translation>
    </message>
    <message>
        <source>Sound</source>
        <translation>Audio</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Größe</translation>
    </message>
    <message>
        <source>Changed</source>
        <translation>Geändert</translation>
    </message>
    <message>
        <source>Notes</source>
        <translation>Notizen</translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation>Im Ordner zeigen</translation>
    </message>
    <message>
        <source>The file is missing</source>
        <translation>Die Datei fehlt</translation>
    </message>
</context>
<context>
    <name>TrackFilters</name>
    <message>
        <source>Add Filter</source>
        <translation>Filter hinzufügen</translation>
    </message>
</context>
<context>
    <name>TrackInspector</name>
    <message>
        <source>&amp;Inspector</source>
        <translation>&amp;Inspektor</translation>
    </message>
</context>
<context>
    <name>TrackRangeEditor</name>
    <message>
        <source>%1 bpm ± %2 %</source>
        <translation>%1 bpm ± %2 %</translation>
    </message>
    <message>
        <source>Around the track that plays or is selected: what a pitch fader bridges</source>
        <translation>Um den gespielten oder ausgewählten Titel: was ein Pitch-Fader überbrückt</translation>
    </message>
</context>
<context>
    <name>TrackReasons</name>
    <message>
        <source>nothing</source>
        <translation>nichts</translation>
    </message>
    <message>
        <source>–  %1 (%2) keeps nothing out</source>
        <translation>–  %1 (%2) hält nichts fern</translation>
    </message>
    <message>
        <source>✓  %1 is %2, and %3 is asked for</source>
        <translation>✓  %1: %2, gefragt ist %3</translation>
    </message>
    <message>
        <source>✗  %1 is %2, but %3 is asked for</source>
        <translation>✗  %1: %2, gefragt ist aber %3</translation>
    </message>
    <message>
        <source>There are no filters: every track of this place is shown.</source>
        <translation>Es gibt keine Filter: Jeder Titel dieses Orts wird gezeigt.</translation>
    </message>
    <message>
        <source>Minor</source>
        <translation>Moll</translation>
    </message>
    <message>
        <source>Major</source>
        <translation>Dur</translation>
    </message>
    <message>
        <source>yes</source>
        <translation>ja</translation>
    </message>
    <message>
        <source>no</source>
        <translation>nein</translation>
    </message>
</context>
<context>
    <name>TrackTable</name>
    <message>
        <source>Title</source>
        <translation>Titel</translation>
    </message>
    <message>
        <source>Artist</source>
        <translation>Künstler</translation>
    </message>
    <message>
        <source>Album</source>
        <translation>Album</translation>
    </message>
    <message>
        <source>Genre</source>
        <translation>Genre</translation>
    </message>
    <message>
        <source>BPM</source>
        <translation>BPM</translation>
    </message>
    <message>
        <source>Key</source>
        <translation>Tonart</translation>
    </message>
    <message>
        <source>Rating</source>
        <translation>Wertung</translation>
    </message>
    <message>
        <source>Length</source>
        <translation>Länge</translation>
    </message>
    <message>
        <source>Label</source>
        <translation>Label</translation>
    </message>
    <message>
        <source>Year</source>
        <translation>Jahr</translation>
    </message>
    <message>
        <source>Added</source>
        <translation>Hinzugefügt</translation>
    </message>
    <message>
        <source>Comment</source>
        <translation>Kommentar</translation>
    </message>
    <message>
        <source>Waveform</source>
        <translation>Wellenform</translation>
    </message>
</context>
<context>
    <name>TrackTableModel</name>
    <message>
        <source>Analysed; not from the file&apos;s tags</source>
        <translation>Analysiert; nicht aus den Tags der Datei</translation>
    </message>
    <message>
        <source>%1 of 5 stars</source>
        <translation>%1 von 5 Sternen</translation>
    </message>
    <message>
        <source>%1, file missing</source>
        <translation>%1, Datei fehlt</translation>
    </message>
    <message>
        <source>%1, file cut off</source>
        <translation>%1, Datei abgeschnitten</translation>
    </message>
    <message>
        <source>%1, analysed</source>
        <translation>%1, analysiert</translation>
    </message>
</context>
<context>
    <name>TrackTableView</name>
    <message>
        <source>Tracks</source>
        <translation>Titel</translation>
    </message>
</context>
<context>
    <name>TrackTagsSection</name>
    <message>
        <source>Tags</source>
        <translation>Tags</translation>
    </message>
    <message>
        <source>Rating</source>
        <translation>Wertung</translation>
    </message>
    <message>
        <source>Mixed</source>
        <translation>Gemischt</translation>
    </message>
    <message>
        <source>Analysed; not from the file&apos;s tags</source>
        <translation>Analysiert; nicht aus den Tags der Datei</translation>
    </message>
</context>
<context>
    <name>TrackUsesSection</name>
    <message>
        <source>Where It Is Used</source>
        <translation>Verwendet in</translation>
    </message>
    <message>
        <source>Select a single track</source>
        <translation>Wählen Sie einen einzelnen Titel</translation>
    </message>
    <message>
        <source>Put there</source>
        <translation>Dort abgelegt</translation>
    </message>
    <message>
        <source>No crate and no preset holds this track</source>
        <translation>Dieser Titel ist in keiner Crate und keinem Preset</translation>
    </message>
    <message numerus="yes">
        <source>and %1 more</source>
        <translation>
            <numerusform>und %1 weitere</numerusform>
            <numerusform>und %1 weitere</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>WaveformMaker</name>
    <message>
        <source>Make &amp;Waveforms of This List</source>
        <translation>&amp;Wellenformen dieser Liste erzeugen</translation>
    </message>
    <message>
        <source>Make &amp;Waveforms of This List (%1 of %2)</source>
        <translation>&amp;Wellenformen dieser Liste erzeugen (%1 von %2)</translation>
    </message>
</context>
<context>
    <name>Welcome</name>
    <message>
        <source>Add Music Folder…</source>
        <translation>Musikordner hinzufügen …</translation>
    </message>
    <message>
        <source>Add Files…</source>
        <translation>Dateien hinzufügen …</translation>
    </message>
    <message>
        <source>Try Demo Music</source>
        <translation>Demomusik probieren</translation>
    </message>
    <message>
        <source>Welcome</source>
        <translation>Willkommen</translation>
    </message>
    <message>
        <source>No music in the library yet. Add a folder, or drop folders and files here. Your files stay where they are.</source>
        <translation>Noch keine Musik in der Bibliothek. Fügen Sie einen Ordner hinzu oder ziehen Sie Ordner und Dateien hierher. Ihre Dateien bleiben, wo sie sind.</translation>
    </message>
</context>
</TS>
