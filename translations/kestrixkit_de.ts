<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>KestrixKit</name>
    <message>
        <source>Span</source>
        <translation>Zeitraum</translation>
    </message>
    <message>
        <source>From</source>
        <translation>Von</translation>
    </message>
    <message>
        <source>First day</source>
        <translation>Erster Tag</translation>
    </message>
    <message>
        <source>to</source>
        <translation>bis</translation>
    </message>
    <message>
        <source>Last day</source>
        <translation>Letzter Tag</translation>
    </message>
    <message>
        <source>Search the values</source>
        <translation>Werte durchsuchen</translation>
    </message>
    <message>
        <source>Search</source>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>Values</source>
        <translation>Werte</translation>
    </message>
    <message>
        <source>Add Filter</source>
        <translation>Filter hinzufügen</translation>
    </message>
    <message>
        <source>Save as Preset</source>
        <translation>Als Preset speichern</translation>
    </message>
    <message>
        <source>Delete All Filters</source>
        <translation>Alle Filter löschen</translation>
    </message>
    <message>
        <source>Kinds of filters</source>
        <translation>Arten von Filtern</translation>
    </message>
    <message>
        <source>Contents of the Preset</source>
        <translation>Inhalt des Presets</translation>
    </message>
    <message>
        <source>New Folder</source>
        <translation>Neuer Ordner</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>With Counts Only</source>
        <translation>Nur mit Anzahl</translation>
    </message>
    <message>
        <source>Show only values that have a count</source>
        <translation>Nur Werte zeigen, zu denen es etwas gibt</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Name of the preset</source>
        <translation>Name des Presets</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>Presets</source>
        <translation>Presets</translation>
    </message>
    <message>
        <source>Opens the presets library</source>
        <translation>Öffnet die Preset-Bibliothek</translation>
    </message>
    <message>
        <source>Load</source>
        <translation>Laden</translation>
    </message>
    <message>
        <source>Find filters</source>
        <translation>Filter finden</translation>
    </message>
    <message>
        <source>Find</source>
        <translation>Finden</translation>
    </message>
    <message>
        <source>Inspector</source>
        <translation>Inspektor</translation>
    </message>
    <message>
        <source>First comparison</source>
        <translation>Erster Vergleich</translation>
    </message>
    <message>
        <source>First bound</source>
        <translation>Erste Grenze</translation>
    </message>
    <message>
        <source>any</source>
        <translation>beliebig</translation>
    </message>
    <message>
        <source>Second comparison</source>
        <translation>Zweiter Vergleich</translation>
    </message>
    <message>
        <source>Second bound</source>
        <translation>Zweite Grenze</translation>
    </message>
    <message>
        <source>Searching</source>
        <translation>Suche läuft</translation>
    </message>
    <message>
        <source>Results</source>
        <translation>Ergebnisse</translation>
    </message>
    <message>
        <source>No Results</source>
        <translation>Keine Ergebnisse</translation>
    </message>
    <message>
        <source>Source List</source>
        <translation>Quellenliste</translation>
    </message>
    <message>
        <source>Failed to read file (%i)</source>
        <translation>Die Datei konnte nicht gelesen werden (%i)</translation>
    </message>
    <message>
        <source>A waveform of %g by %g pixels is too large</source>
        <translation>Eine Wellenform von %g mal %g Pixeln ist zu groß</translation>
    </message>
    <message>
        <source>A waveform of %i channels cannot be made</source>
        <translation>Eine Wellenform mit %i Kanälen ist nicht möglich</translation>
    </message>
    <message>
        <source>A stored waveform is damaged or of another version</source>
        <translation>Eine gespeicherte Wellenform ist beschädigt oder aus einer anderen Version</translation>
    </message>
    <message>
        <source>Waveform</source>
        <translation>Wellenform</translation>
    </message>
    <message>
        <source>Audio type</source>
        <translation>Audiotyp</translation>
    </message>
    <message>
        <source>The catalogue at %@ cannot be changed: %@</source>
        <translation>Der Katalog unter %@ kann nicht geändert werden: %@</translation>
    </message>
    <message>
        <source>there has to be one</source>
        <translation>es muss einen geben</translation>
    </message>
    <message>
        <source>A track is left out for its &quot;%@&quot;: %@</source>
        <translation>Ein Titel wird wegen „%@“ ausgelassen: %@</translation>
    </message>
    <message>
        <source>The address of the shop holds a password. Put the password into the file ~/.pgpass, and leave it out of the address.</source>
        <translation>Die Adresse des Shops enthält ein Passwort. Tragen Sie das Passwort in die Datei ~/.pgpass ein und lassen Sie es in der Adresse weg.</translation>
    </message>
    <message>
        <source>The address of the shop cannot be read. It looks like postgresql://host:5432/database.</source>
        <translation>Die Adresse des Shops ist nicht lesbar. Sie sieht so aus: postgresql://host:5432/database.</translation>
    </message>
    <message>
        <source>The shop at %@ did not answer in time. Narrow the search, or try again.</source>
        <translation>Der Shop unter %@ hat nicht rechtzeitig geantwortet. Grenzen Sie die Suche ein oder versuchen Sie es noch einmal.</translation>
    </message>
    <message>
        <source>&quot;%@&quot; has too many values to be listed. Narrow the search.</source>
        <translation>„%@“ hat zu viele Werte für eine Liste. Grenzen Sie die Suche ein.</translation>
    </message>
    <message>
        <source>&quot;%@&quot; is only searched by words</source>
        <translation>„%@“ wird nur nach Wörtern durchsucht</translation>
    </message>
    <message>
        <source>words are looked for in a real number</source>
        <translation>in einer Kommazahl werden Wörter gesucht</translation>
    </message>
    <message>
        <source>the catalogue does not keep the words of &quot;%@&quot;</source>
        <translation>der Katalog kennt die Wörter von „%@“ nicht</translation>
    </message>
    <message>
        <source>the words to look for come from a column</source>
        <translation>die gesuchten Wörter stammen aus einer Spalte</translation>
    </message>
    <message>
        <source>a text holds the character 0</source>
        <translation>ein Text enthält das Zeichen 0</translation>
    </message>
    <message>
        <source>a pattern comes from a column</source>
        <translation>ein Muster stammt aus einer Spalte</translation>
    </message>
    <message>
        <source>a text holds half a character</source>
        <translation>ein Text enthält ein halbes Zeichen</translation>
    </message>
    <message>
        <source>a date lies outside the years 1 to 9999</source>
        <translation>ein Datum liegt außerhalb der Jahre 1 bis 9999</translation>
    </message>
    <message>
        <source>the page goes on from another order</source>
        <translation>die Seite setzt eine andere Reihenfolge fort</translation>
    </message>
    <message>
        <source>The shop cannot answer this: %@. Leave this condition out.</source>
        <translation>Der Shop kann das nicht beantworten: %@. Lassen Sie diese Bedingung weg.</translation>
    </message>
    <message>
        <source>&quot;%@&quot; has no order</source>
        <translation>„%@“ hat keine Reihenfolge</translation>
    </message>
    <message>
        <source>&quot;%@&quot; cannot be shown</source>
        <translation>„%@“ kann nicht gezeigt werden</translation>
    </message>
    <message>
        <source>more facets are asked for than one statement counts</source>
        <translation>es sind mehr Facetten gefragt, als eine Abfrage zählt</translation>
    </message>
    <message>
        <source>&quot;%@&quot; is a list</source>
        <translation>„%@“ ist eine Liste</translation>
    </message>
    <message>
        <source>a regular expression asks for more than the catalogue can</source>
        <translation>ein regulärer Ausdruck verlangt mehr, als der Katalog kann</translation>
    </message>
    <message>
        <source>the catalogue has no &quot;%@&quot;</source>
        <translation>der Katalog hat kein „%@“</translation>
    </message>
    <message>
        <source>it holds too many values</source>
        <translation>sie enthält zu viele Werte</translation>
    </message>
    <message>
        <source>the catalogue has no copy of &quot;%@&quot; without case or diacritics</source>
        <translation>der Katalog hat keine Fassung von „%@“ ohne Groß- und Kleinschreibung und Akzente</translation>
    </message>
    <message>
        <source>a variable has no value yet</source>
        <translation>eine Variable hat noch keinen Wert</translation>
    </message>
    <message>
        <source>the track itself is compared</source>
        <translation>der Titel selbst wird verglichen</translation>
    </message>
    <message>
        <source>a side is made of several key paths</source>
        <translation>eine Seite besteht aus mehreren Pfaden</translation>
    </message>
    <message>
        <source>a list of the catalogue&apos;s stands on the right side</source>
        <translation>eine Liste des Katalogs steht auf der rechten Seite</translation>
    </message>
    <message>
        <source>The shop took too long. Narrow the search, or try again.</source>
        <translation>Der Shop hat zu lange gebraucht. Grenzen Sie die Suche ein oder versuchen Sie es noch einmal.</translation>
    </message>
    <message>
        <source>The shop&apos;s catalogue is being changed. Try again in a moment.</source>
        <translation>Der Katalog des Shops wird gerade geändert. Versuchen Sie es gleich noch einmal.</translation>
    </message>
    <message>
        <source>The shop at %@ does not let you in: %@. Check the user name, and the password in ~/.pgpass.</source>
        <translation>Der Shop unter %@ lässt Sie nicht ein: %@. Prüfen Sie den Benutzernamen und das Passwort in ~/.pgpass.</translation>
    </message>
    <message>
        <source>There is no catalogue at %@: %@. Check the address, or make one with &quot;kxtool catalogue create&quot;.</source>
        <translation>Unter %@ gibt es keinen Katalog: %@. Prüfen Sie die Adresse oder legen Sie einen mit „kxtool catalogue create“ an.</translation>
    </message>
    <message>
        <source>The shop at %@ does not answer: %@. Check the network, or try again later.</source>
        <translation>Der Shop unter %@ antwortet nicht: %@. Prüfen Sie das Netzwerk oder versuchen Sie es später noch einmal.</translation>
    </message>
    <message>
        <source>The shop at %@ could not answer: %@ (%@).</source>
        <translation>Der Shop unter %@ konnte nicht antworten: %@ (%@).</translation>
    </message>
    <message>
        <source>The catalogue at %@ is not in UTF8. It has to be made anew.</source>
        <translation>Der Katalog unter %@ ist nicht in UTF8. Er muss neu angelegt werden.</translation>
    </message>
    <message>
        <source>out of memory</source>
        <translation>der Speicher reicht nicht</translation>
    </message>
    <message>
        <source>Distribution of %@</source>
        <translation>Verteilung: %@</translation>
    </message>
    <message>
        <source>Distribution</source>
        <translation>Verteilung</translation>
    </message>
    <message>
        <source>%@ to %@: %@</source>
        <translation>%@ bis %@: %@</translation>
    </message>
    <message numerus="yes">
        <source>%@ in the list with it</source>
        <translation>
            <numerusform>%@ damit in der Liste</numerusform>
            <numerusform>%@ damit in der Liste</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%@ without it</source>
        <translation>
            <numerusform>%@ ohne ihn</numerusform>
            <numerusform>%@ ohne ihn</numerusform>
        </translation>
    </message>
    <message>
        <source>Excluding several values keeps nothing out: each differs from one of them</source>
        <translation>Mehrere Werte auszuschließen hält nichts fern: Jeder weicht von einem davon ab</translation>
    </message>
    <message>
        <source>Filters</source>
        <translation>Filter</translation>
    </message>
    <message>
        <source>Any</source>
        <translation>Beliebig</translation>
    </message>
    <message>
        <source>Filter</source>
        <translation>Filter</translation>
    </message>
    <message>
        <source>Use %@</source>
        <translation>%@ verwenden</translation>
    </message>
    <message>
        <source>Switch this filter off</source>
        <translation>Diesen Filter ausschalten</translation>
    </message>
    <message>
        <source>Switch this filter on</source>
        <translation>Diesen Filter einschalten</translation>
    </message>
    <message>
        <source>No filters</source>
        <translation>Keine Filter</translation>
    </message>
    <message>
        <source>Add</source>
        <translation>Hinzufügen</translation>
    </message>
    <message>
        <source>Delete Filters</source>
        <translation>Filter löschen</translation>
    </message>
    <message>
        <source>Nothing can fit this filter.</source>
        <translation>Auf diesen Filter kann nichts passen.</translation>
    </message>
    <message>
        <source>Nothing can fit this filter and %@ at once.</source>
        <translation>Auf diesen Filter und %@ zugleich kann nichts passen.</translation>
    </message>
    <message>
        <source>Delete Filter</source>
        <translation>Filter löschen</translation>
    </message>
    <message>
        <source>Disable</source>
        <translation>Ausschalten</translation>
    </message>
    <message>
        <source>Enable</source>
        <translation>Einschalten</translation>
    </message>
    <message>
        <source>Enable / Disable</source>
        <translation>Ein- / Ausschalten</translation>
    </message>
    <message>
        <source>NOT %@</source>
        <translation>NICHT %@</translation>
    </message>
    <message>
        <source>This preset is not available in the current selected section.</source>
        <translation>Dieses Preset ist im gewählten Bereich nicht verfügbar.</translation>
    </message>
    <message>
        <source>Load and Enable Selected</source>
        <translation>Auswahl laden und einschalten</translation>
    </message>
    <message>
        <source>untitled folder</source>
        <translation>Neuer Ordner</translation>
    </message>
    <message>
        <source>Yes</source>
        <translation>Ja</translation>
    </message>
    <message>
        <source>No</source>
        <translation>Nein</translation>
    </message>
    <message>
        <source>Delete Filter Preset</source>
        <translation>Filter-Preset löschen</translation>
    </message>
    <message numerus="yes">
        <source>Delete Filter Presets</source>
        <translation>
            <numerusform>Filter-Preset löschen</numerusform>
            <numerusform>Filter-Presets löschen</numerusform>
        </translation>
    </message>
    <message>
        <source>Are you sure you want to overwrite the selected filter preset?</source>
        <translation>Möchten Sie das ausgewählte Filter-Preset wirklich überschreiben?</translation>
    </message>
    <message>
        <source>No Presets</source>
        <translation>Keine Presets</translation>
    </message>
    <message>
        <source>No Filter Preset Selected</source>
        <translation>Kein Filter-Preset ausgewählt</translation>
    </message>
    <message>
        <source>Empty Preset</source>
        <translation>Leeres Preset</translation>
    </message>
    <message>
        <source>More Presets</source>
        <translation>Weitere Presets</translation>
    </message>
    <message>
        <source>counted just now</source>
        <translation>gerade eben gezählt</translation>
    </message>
    <message>
        <source>counted a minute ago</source>
        <translation>vor einer Minute gezählt</translation>
    </message>
    <message numerus="yes">
        <source>counted %lld minutes ago</source>
        <translation>
            <numerusform>vor %lld Minute gezählt</numerusform>
            <numerusform>vor %lld Minuten gezählt</numerusform>
        </translation>
    </message>
    <message>
        <source>counted an hour ago</source>
        <translation>vor einer Stunde gezählt</translation>
    </message>
    <message numerus="yes">
        <source>counted %lld hours ago</source>
        <translation>
            <numerusform>vor %lld Stunde gezählt</numerusform>
            <numerusform>vor %lld Stunden gezählt</numerusform>
        </translation>
    </message>
    <message>
        <source>counted a day ago</source>
        <translation>vor einem Tag gezählt</translation>
    </message>
    <message numerus="yes">
        <source>counted %lld days ago</source>
        <translation>
            <numerusform>vor %lld Tag gezählt</numerusform>
            <numerusform>vor %lld Tagen gezählt</numerusform>
        </translation>
    </message>
    <message>
        <source>All</source>
        <translation>Alle</translation>
    </message>
    <message>
        <source>Today</source>
        <translation>Heute</translation>
    </message>
    <message>
        <source>Yesterday</source>
        <translation>Gestern</translation>
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
        <source>%@ - %@</source>
        <translation>%@ – %@</translation>
    </message>
    <message>
        <source>AND</source>
        <translation>UND</translation>
    </message>
    <message>
        <source>Stack Trace: </source>
        <translation>Aufrufe: </translation>
    </message>
    <message>
        <source>Messages</source>
        <translation>Meldungen</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>Notice</source>
        <translation>Hinweis</translation>
    </message>
    <message numerus="yes">
        <source>%@ more messages are not shown</source>
        <translation>
            <numerusform>%@ weitere Meldung wird nicht gezeigt</numerusform>
            <numerusform>%@ weitere Meldungen werden nicht gezeigt</numerusform>
        </translation>
    </message>
    <message>
        <source>Hide Messages</source>
        <translation>Meldungen ausblenden</translation>
    </message>
    <message>
        <source>Busy</source>
        <translation>Beschäftigt</translation>
    </message>
    <message>
        <source>Untitled</source>
        <translation>Ohne Titel</translation>
    </message>
    <message>
        <source>Close %@</source>
        <translation>%@ schließen</translation>
    </message>
    <message>
        <source>Navigation</source>
        <translation>Navigation</translation>
    </message>
    <message>
        <source>More Places</source>
        <translation>Weitere Orte</translation>
    </message>
    <message>
        <source>Current place</source>
        <translation>Aktueller Ort</translation>
    </message>
    <message>
        <source>All results</source>
        <translation>Alle Ergebnisse</translation>
    </message>
    <message numerus="yes">
        <source>Show %ld more...</source>
        <translation>
            <numerusform>%ld weiteres zeigen …</numerusform>
            <numerusform>%ld weitere zeigen …</numerusform>
        </translation>
    </message>
    <message>
        <source>The operation was cancelled</source>
        <translation>Der Vorgang wurde abgebrochen</translation>
    </message>
    <message>
        <source>A condition takes more than %lld steps for one object</source>
        <translation>Eine Bedingung braucht für ein Objekt mehr als %lld Schritte</translation>
    </message>
    <message>
        <source>Move Items</source>
        <translation>Objekte bewegen</translation>
    </message>
    <message>
        <source>Copy Items</source>
        <translation>Objekte kopieren</translation>
    </message>
    <message>
        <source>Rename</source>
        <translation>Umbenennen</translation>
    </message>
    <message>
        <source>More</source>
        <translation>Mehr</translation>
    </message>
    <message>
        <source>Divider</source>
        <translation>Trennlinie</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Do not ask again</source>
        <translation>Nicht mehr fragen</translation>
    </message>
    <message>
        <source>Change %@</source>
        <translation>%@ ändern</translation>
    </message>
    <message>
        <source>Today %@</source>
        <translation>Heute, %@</translation>
    </message>
    <message>
        <source>Yesterday %@</source>
        <translation>Gestern, %@</translation>
    </message>
    <message>
        <source>Sections</source>
        <translation>Bereiche</translation>
    </message>
    <message>
        <source>Sort By</source>
        <translation>Sortieren nach</translation>
    </message>
    <message>
        <source>Columns</source>
        <translation>Spalten</translation>
    </message>
    <message>
        <source>Default Columns</source>
        <translation>Standardspalten</translation>
    </message>
    <message>
        <source>Failed to open file (%i)</source>
        <translation>Die Datei konnte nicht geöffnet werden (%i)</translation>
    </message>
    <message>
        <source>Failed to read file data format property (%i)</source>
        <translation>Das Datenformat der Datei konnte nicht gelesen werden (%i)</translation>
    </message>
    <message>
        <source>Failed to read frames property (%i)</source>
        <translation>Die Länge der Datei konnte nicht gelesen werden (%i)</translation>
    </message>
    <message>
        <source>Failed to set client data format (%i)</source>
        <translation>Das Ausgabeformat konnte nicht gesetzt werden (%i)</translation>
    </message>
    <message>
        <source>Mix</source>
        <translation>Mix</translation>
    </message>
    <message>
        <source>Track</source>
        <translation>Track</translation>
    </message>
    <message>
        <source>Stem</source>
        <translation>Stem</translation>
    </message>
    <message>
        <source>Part</source>
        <translation>Part</translation>
    </message>
    <message>
        <source>Loop</source>
        <translation>Loop</translation>
    </message>
    <message>
        <source>One-Shot</source>
        <translation>One-Shot</translation>
    </message>
    <message>
        <source>SFX</source>
        <translation>SFX</translation>
    </message>
    <message>
        <source>it is neither true nor false</source>
        <translation>er ist weder wahr noch falsch</translation>
    </message>
    <message>
        <source>it is no whole number</source>
        <translation>er ist keine ganze Zahl</translation>
    </message>
    <message>
        <source>it is no number</source>
        <translation>er ist keine Zahl</translation>
    </message>
    <message>
        <source>it is no decimal number</source>
        <translation>er ist keine Dezimalzahl</translation>
    </message>
    <message>
        <source>it is no date of the years 1 to 9999</source>
        <translation>er ist kein Datum der Jahre 1 bis 9999</translation>
    </message>
    <message>
        <source>it is no text</source>
        <translation>er ist kein Text</translation>
    </message>
    <message>
        <source>it holds what is no character</source>
        <translation>er enthält etwas, das kein Zeichen ist</translation>
    </message>
    <message>
        <source>it is no value</source>
        <translation>er ist kein Wert</translation>
    </message>
    <message>
        <source>included</source>
        <translation>eingeschlossen</translation>
    </message>
    <message>
        <source>excluded</source>
        <translation>ausgeschlossen</translation>
    </message>
    <message>
        <source>at least</source>
        <translation>mindestens</translation>
    </message>
    <message>
        <source>more than</source>
        <translation>mehr als</translation>
    </message>
    <message>
        <source>at most</source>
        <translation>höchstens</translation>
    </message>
    <message>
        <source>less than</source>
        <translation>weniger als</translation>
    </message>
    <message>
        <source>exactly</source>
        <translation>genau</translation>
    </message>
    <message>
        <source>anything but</source>
        <translation>alles außer</translation>
    </message>
    <message>
        <source>Are you sure you want to delete the selected preset?</source>
        <translation>Möchten Sie das ausgewählte Preset wirklich löschen?</translation>
    </message>
    <message numerus="yes">
        <source>Are you sure you want to delete the selected presets?</source>
        <translation>
            <numerusform>Möchten Sie das ausgewählte Preset wirklich löschen?</numerusform>
            <numerusform>Möchten Sie die ausgewählten Presets wirklich löschen?</numerusform>
        </translation>
    </message>
    <message>
        <source>Copy</source>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>Paste</source>
        <translation>Einfügen</translation>
    </message>
    <message>
        <source>Undo</source>
        <translation>Rückgängig</translation>
    </message>
    <message>
        <source>Undo %@</source>
        <translation>Rückgängig: %@</translation>
    </message>
    <message>
        <source>Redo</source>
        <translation>Wiederholen</translation>
    </message>
    <message>
        <source>Redo %@</source>
        <translation>Wiederholen: %@</translation>
    </message>
    <message>
        <source>1 more message is not shown</source>
        <translation>1 weitere Meldung wird nicht gezeigt</translation>
    </message>
    <message>
        <source>Clear</source>
        <translation>Leeren</translation>
    </message>
    <message>
        <source>Shops cannot be used: a part of the program is missing. Install it anew.</source>
        <translation>Shops lassen sich nicht nutzen: Ein Teil des Programms fehlt. Installieren Sie es neu.</translation>
    </message>
</context>
</TS>
