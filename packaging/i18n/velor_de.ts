<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>No MIDI destinations. Start a program with a MIDI input, or a JACK or PipeWire server.</source>
        <translation>Keine MIDI-Ziele. Starten Sie ein Programm mit MIDI-Eingang oder einen JACK- oder PipeWire-Server.</translation>
    </message>
    <message>
        <source>missing</source>
        <translation>fehlt</translation>
    </message>
    <message>
        <source>off</source>
        <translation>aus</translation>
    </message>
    <message>
        <source>sending</source>
        <translation>sendet</translation>
    </message>
    <message>
        <source>ready</source>
        <translation>bereit</translation>
    </message>
    <message>
        <source>On</source>
        <translation>Ein</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>State</source>
        <translation>Zustand</translation>
    </message>
    <message>
        <source>Time</source>
        <translation>Zeit</translation>
    </message>
    <message>
        <source>No markers. + adds one at the current time.</source>
        <translation>Keine Marker. + setzt einen an der aktuellen Zeit.</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>No hosts. One that sends a command while the server runs appears here.</source>
        <translation>Keine Hosts. Wer bei laufendem Server einen Befehl sendet, erscheint hier.</translation>
    </message>
    <message>
        <source>Address</source>
        <translation>Adresse</translation>
    </message>
    <message>
        <source>not connected</source>
        <translation>nicht verbunden</translation>
    </message>
    <message>
        <source>No targets. Those on the network appear here; Add Target adds one by its address.</source>
        <translation>Keine Ziele. Die im Netz erscheinen hier; „Ziel hinzufügen“ fügt eines mit seiner Adresse hinzu.</translation>
    </message>
    <message>
        <source>Host</source>
        <translation>Host</translation>
    </message>
    <message>
        <source>Port</source>
        <translation>Port</translation>
    </message>
    <message>
        <source>A target needs a host; expected a name or an address</source>
        <translation>Ein Ziel braucht einen Host; erwartet wird ein Name oder eine Adresse</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is not a port; expected 1 to 65535</source>
        <translation>„%1“ ist kein Port; erwartet wird 1 bis 65535</translation>
    </message>
</context>
<context>
    <name>VLAppDelegate</name>
    <message>
        <source>Normal</source>
        <translation>Normal</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stopp</translation>
    </message>
    <message>
        <source>Loop</source>
        <translation>Schleife</translation>
    </message>
    <message>
        <source>Time of day</source>
        <translation>Uhrzeit</translation>
    </message>
    <message>
        <source>Wrong SMPTE Format</source>
        <translation>Falsches SMPTE-Format</translation>
    </message>
    <message>
        <source>The clock receives MTC on %1 at %2 fps, which does not match the currently set format of %3 fps</source>
        <translation>Die Uhr empfängt von %1 MTC mit %2 fps. Eingestellt ist das Format %3 fps.</translation>
    </message>
    <message>
        <source>use %1 fps</source>
        <translation>%1 fps verwenden</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>MIDI/MTC Loop detected!</source>
        <translation>MIDI/MTC-Schleife erkannt!</translation>
    </message>
    <message>
        <source>There appears to be a MIDI loop between &quot;%1&quot; and &quot;%2&quot;. For correct operation &quot;%3&quot; should not be a MTC Destination</source>
        <translation>Zwischen „%1“ und „%2“ scheint eine MIDI-Schleife zu bestehen. Für einen richtigen Betrieb darf „%3“ kein MTC-Ziel sein.</translation>
    </message>
    <message>
        <source>Disable %1</source>
        <translation>%1 ausschalten</translation>
    </message>
    <message>
        <source>Proceed anyway</source>
        <translation>Trotzdem fortfahren</translation>
    </message>
    <message>
        <source>Devices are running - Quit anyway?</source>
        <translation>Geräte laufen – trotzdem beenden?</translation>
    </message>
    <message>
        <source>Do you really want to quit Velor? Some devices are currently running and generating timecode.</source>
        <translation>Möchten Sie Velor wirklich beenden? Einige Geräte laufen und erzeugen Timecode.</translation>
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
        <source>change start time %1</source>
        <translation>Startzeit %1 ändern</translation>
    </message>
    <message>
        <source>insert %1 markers</source>
        <translation>%1 Marker einfügen</translation>
    </message>
    <message>
        <source>insert %1</source>
        <translation>%1 einfügen</translation>
    </message>
    <message>
        <source>remove %1 markers</source>
        <translation>%1 Marker entfernen</translation>
    </message>
    <message>
        <source>remove %1</source>
        <translation>%1 entfernen</translation>
    </message>
</context>
<context>
    <name>VLClockStatus</name>
    <message>
        <source>running</source>
        <translation>läuft</translation>
    </message>
    <message>
        <source>armed</source>
        <translation>scharf</translation>
    </message>
    <message>
        <source>chasing</source>
        <translation>folgt</translation>
    </message>
    <message>
        <source>wrong format</source>
        <translation>falsches Format</translation>
    </message>
    <message>
        <source>stopped</source>
        <translation>gestoppt</translation>
    </message>
</context>
<context>
    <name>VLDestinationsViewController</name>
    <message>
        <source>Devices</source>
        <translation>Geräte</translation>
    </message>
    <message>
        <source>Add Generator</source>
        <translation>Generator hinzufügen</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Entfernen</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
</context>
<context>
    <name>VLFilePanels</name>
    <message>
        <source>Replace the document?</source>
        <translation>Dokument ersetzen?</translation>
    </message>
    <message>
        <source>&quot;%1&quot; exists already.</source>
        <translation>„%1“ gibt es bereits.</translation>
    </message>
    <message>
        <source>Replace</source>
        <translation>Ersetzen</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Sichern</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
    <message>
        <source>Velor documents</source>
        <translation>Velor-Dokumente</translation>
    </message>
    <message>
        <source>Open Clip</source>
        <translation>Clip öffnen</translation>
    </message>
</context>
<context>
    <name>VLGeneratorViewController</name>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>Timecode</source>
        <translation>Timecode</translation>
    </message>
    <message>
        <source>Format</source>
        <translation>Format</translation>
    </message>
    <message>
        <source>Device</source>
        <translation>Gerät</translation>
    </message>
    <message>
        <source>Channel</source>
        <translation>Kanal</translation>
    </message>
    <message>
        <source>Level</source>
        <translation>Pegel</translation>
    </message>
    <message>
        <source>User Bits</source>
        <translation>User-Bits</translation>
    </message>
</context>
<context>
    <name>VLLTCReaderViewController</name>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>Timecode</source>
        <translation>Timecode</translation>
    </message>
    <message>
        <source>User Bits</source>
        <translation>User-Bits</translation>
    </message>
    <message>
        <source>Format</source>
        <translation>Format</translation>
    </message>
    <message>
        <source>Device</source>
        <translation>Gerät</translation>
    </message>
    <message>
        <source>Channel</source>
        <translation>Kanal</translation>
    </message>
    <message>
        <source>Freewheel</source>
        <translation>Freilauf</translation>
    </message>
    <message>
        <source>Seconds after the LTC ends; -1 = without end</source>
        <translation>Sekunden nach dem Ende des LTC; -1 = ohne Ende</translation>
    </message>
    <message>
        <source>s</source>
        <translation>s</translation>
    </message>
    <message>
        <source>Stop Freewheeling</source>
        <translation>Freilauf beenden</translation>
    </message>
    <message>
        <source>Condition input</source>
        <translation>Eingang aufbereiten</translation>
    </message>
    <message>
        <source>For bad lines, at the cost of up to a frame of delay</source>
        <translation>Für schlechte Leitungen; verzögert um bis zu ein Bild</translation>
    </message>
</context>
<context>
    <name>VLMainWindow</name>
    <message>
        <source>Play</source>
        <translation>Start</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stopp</translation>
    </message>
    <message>
        <source>Arm</source>
        <translation>Scharf</translation>
    </message>
    <message>
        <source>Pre-roll</source>
        <translation>Vorlauf</translation>
    </message>
    <message>
        <source>Format</source>
        <translation>Format</translation>
    </message>
    <message>
        <source>Play Rate...</source>
        <translation>Geschwindigkeit ...</translation>
    </message>
    <message>
        <source>Destinations</source>
        <translation>Ziele</translation>
    </message>
    <message>
        <source>Markers</source>
        <translation>Marker</translation>
    </message>
    <message>
        <source>Previous Marker</source>
        <translation>Voriger Marker</translation>
    </message>
    <message>
        <source>Add Marker</source>
        <translation>Marker setzen</translation>
    </message>
    <message>
        <source>Next Marker</source>
        <translation>Nächster Marker</translation>
    </message>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
</context>
<context>
    <name>VLMediaPlaybackWindow</name>
    <message>
        <source>Video</source>
        <translation>Video</translation>
    </message>
    <message>
        <source>Position</source>
        <translation>Position</translation>
    </message>
    <message>
        <source>Position in the clip</source>
        <translation>Position im Clip</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Start</translation>
    </message>
    <message>
        <source>Starts or stops the clip; with &quot;control master clock&quot;, the clock</source>
        <translation>Startet oder stoppt den Clip; mit „Master-Uhr steuern“ die Uhr</translation>
    </message>
    <message>
        <source>Previous Frame</source>
        <translation>Voriges Bild</translation>
    </message>
    <message>
        <source>Previous frame</source>
        <translation>Voriges Bild</translation>
    </message>
    <message>
        <source>Next Frame</source>
        <translation>Nächstes Bild</translation>
    </message>
    <message>
        <source>Next frame</source>
        <translation>Nächstes Bild</translation>
    </message>
    <message>
        <source>Full Screen</source>
        <translation>Vollbild</translation>
    </message>
    <message>
        <source>The picture alone on the whole screen; Escape goes back</source>
        <translation>Das Bild allein auf dem ganzen Bildschirm; zurück mit Escape</translation>
    </message>
    <message>
        <source>Volume</source>
        <translation>Lautstärke</translation>
    </message>
    <message>
        <source>Volume of the clip</source>
        <translation>Lautstärke des Clips</translation>
    </message>
    <message>
        <source>Audio</source>
        <translation>Ton</translation>
    </message>
    <message>
        <source>The channel that gets the sum of all channels</source>
        <translation>Der Kanal, der die Summe aller Kanäle erhält</translation>
    </message>
    <message>
        <source>Online</source>
        <translation>Online</translation>
    </message>
    <message>
        <source>Whether the clip follows MTC</source>
        <translation>Ob der Clip dem MTC folgt</translation>
    </message>
    <message>
        <source>Start Time</source>
        <translation>Startzeit</translation>
    </message>
    <message>
        <source>Timecode of the first frame of the clip</source>
        <translation>Timecode des ersten Bildes des Clips</translation>
    </message>
    <message>
        <source>Action</source>
        <translation>Aktion</translation>
    </message>
    <message>
        <source>What the clip does to the clock and the speed</source>
        <translation>Was der Clip mit Uhr und Geschwindigkeit macht</translation>
    </message>
    <message>
        <source>Clip</source>
        <translation>Clip</translation>
    </message>
    <message>
        <source>Deviation</source>
        <translation>Abweichung</translation>
    </message>
    <message>
        <source>MTC In</source>
        <translation>MTC-Eingang</translation>
    </message>
</context>
<context>
    <name>VLOSCSetupWindowController</name>
    <message>
        <source>OSC Setup</source>
        <translation>OSC-Einstellungen</translation>
    </message>
    <message>
        <source>Port</source>
        <translation>Port</translation>
    </message>
    <message>
        <source>Allow all hosts</source>
        <translation>Alle Hosts zulassen</translation>
    </message>
    <message>
        <source>Allow ticked hosts only</source>
        <translation>Nur angekreuzte Hosts zulassen</translation>
    </message>
    <message>
        <source>Allowed Hosts</source>
        <translation>Zugelassene Hosts</translation>
    </message>
    <message>
        <source>Targets</source>
        <translation>Ziele</translation>
    </message>
    <message>
        <source>Add Target</source>
        <translation>Ziel hinzufügen</translation>
    </message>
</context>
<context>
    <name>VLPlayRateSheet</name>
    <message>
        <source>Play Rate</source>
        <translation>Geschwindigkeit</translation>
    </message>
    <message>
        <source>Rate</source>
        <translation>Abweichung</translation>
    </message>
    <message>
        <source>Format</source>
        <translation>Format</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>velor::VLAudioDeviceViewContoller</name>
    <message>
        <source>No audio device</source>
        <translation>Kein Audiogerät</translation>
    </message>
    <message>
        <source>No channel</source>
        <translation>Kein Kanal</translation>
    </message>
    <message>
        <source>%1 (missing)</source>
        <translation>%1 (fehlt)</translation>
    </message>
    <message>
        <source>%1; %2 stands in until it returns</source>
        <translation>%1; bis es zurückkehrt, dient %2</translation>
    </message>
</context>
<context>
    <name>velor::VLBigTimecodeView</name>
    <message>
        <source>Big Timecode</source>
        <translation>Großer Timecode</translation>
    </message>
</context>
<context>
    <name>velor::VLDestinationsViewController</name>
    <message>
        <source>Remove the selected devices (Delete)</source>
        <translation>Die gewählten Geräte entfernen (Entf)</translation>
    </message>
    <message>
        <source>Open the window of the device (Return)</source>
        <translation>Das Fenster des Geräts öffnen (Eingabe)</translation>
    </message>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>No devices. Add Generator makes an LTC generator; an LTC reader is made in the Devices menu.</source>
        <translation>Keine Geräte. „Generator hinzufügen“ legt einen LTC-Generator an; einen LTC-Leser legt das Menü „Geräte“ an.</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Entfernen</translation>
    </message>
</context>
<context>
    <name>velor::VLLTCReaderViewController</name>
    <message>
        <source>Not Reading</source>
        <translation>Liest nicht</translation>
    </message>
</context>
<context>
    <name>velor::VLMainMenu</name>
    <message>
        <source>&amp;File</source>
        <translation>&amp;Datei</translation>
    </message>
    <message>
        <source>&amp;Edit</source>
        <translation>&amp;Bearbeiten</translation>
    </message>
    <message>
        <source>&amp;Clock</source>
        <translation>&amp;Uhr</translation>
    </message>
    <message>
        <source>&amp;Devices</source>
        <translation>&amp;Geräte</translation>
    </message>
    <message>
        <source>&amp;View</source>
        <translation>&amp;Ansicht</translation>
    </message>
    <message>
        <source>&amp;Window</source>
        <translation>&amp;Fenster</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Hilfe</translation>
    </message>
    <message>
        <source>&amp;Open...</source>
        <translation>Ö&amp;ffnen ...</translation>
    </message>
    <message>
        <source>&amp;Save...</source>
        <translation>&amp;Sichern ...</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Beenden</translation>
    </message>
    <message>
        <source>&amp;Undo</source>
        <translation>&amp;Rückgängig</translation>
    </message>
    <message>
        <source>&amp;Redo</source>
        <translation>&amp;Wiederholen</translation>
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
        <source>&amp;Delete</source>
        <translation>&amp;Löschen</translation>
    </message>
    <message>
        <source>&amp;Play/Stop</source>
        <translation>&amp;Start/Stopp</translation>
    </message>
    <message>
        <source>&amp;Arm</source>
        <translation>S&amp;charf</translation>
    </message>
    <message>
        <source>P&amp;re-roll</source>
        <translation>&amp;Vorlauf</translation>
    </message>
    <message>
        <source>&amp;Sync Source</source>
        <translation>S&amp;ynchronquelle</translation>
    </message>
    <message>
        <source>Intern</source>
        <translation>Intern</translation>
    </message>
    <message>
        <source>MTC &amp;Destinations</source>
        <translation>MTC-&amp;Ziele</translation>
    </message>
    <message>
        <source>&amp;Format</source>
        <translation>&amp;Format</translation>
    </message>
    <message>
        <source>Play &amp;Mode</source>
        <translation>Abspiel&amp;modus</translation>
    </message>
    <message>
        <source>Play R&amp;ate...</source>
        <translation>&amp;Geschwindigkeit ...</translation>
    </message>
    <message>
        <source>Set Loop Start</source>
        <translation>Schleifenanfang setzen</translation>
    </message>
    <message>
        <source>Set Loop End</source>
        <translation>Schleifenende setzen</translation>
    </message>
    <message>
        <source>Previous Marker</source>
        <translation>Voriger Marker</translation>
    </message>
    <message>
        <source>Add Marker</source>
        <translation>Marker setzen</translation>
    </message>
    <message>
        <source>Next Marker</source>
        <translation>Nächster Marker</translation>
    </message>
    <message>
        <source>New LTC &amp;Reader</source>
        <translation>Neuer LTC-&amp;Leser</translation>
    </message>
    <message>
        <source>New LTC &amp;Generator</source>
        <translation>Neuer LTC-&amp;Generator</translation>
    </message>
    <message>
        <source>&amp;Larger</source>
        <translation>&amp;Größer</translation>
    </message>
    <message>
        <source>&amp;Smaller</source>
        <translation>&amp;Kleiner</translation>
    </message>
    <message>
        <source>&amp;Big Timecode</source>
        <translation>&amp;Großer Timecode</translation>
    </message>
    <message>
        <source>&amp;Feedback and Support</source>
        <translation>&amp;Rückmeldung und Hilfe</translation>
    </message>
    <message>
        <source>&amp;Undo %1</source>
        <translation>&amp;Rückgängig: %1</translation>
    </message>
    <message>
        <source>&amp;Redo %1</source>
        <translation>&amp;Wiederholen: %1</translation>
    </message>
    <message>
        <source>No MIDI Destinations</source>
        <translation>Keine MIDI-Ziele</translation>
    </message>
    <message>
        <source>Show &amp;Devices...</source>
        <translation>Geräte &amp;zeigen ...</translation>
    </message>
    <message>
        <source>&amp;Windows</source>
        <translation>&amp;Fenster</translation>
    </message>
    <message>
        <source>No Devices</source>
        <translation>Keine Geräte</translation>
    </message>
    <message>
        <source>&amp;Playback</source>
        <translation>&amp;Wiedergabe</translation>
    </message>
    <message>
        <source>&amp;Playback Window</source>
        <translation>&amp;Wiedergabefenster</translation>
    </message>
    <message>
        <source>&amp;OSC Setup...</source>
        <translation>&amp;OSC-Einstellungen ...</translation>
    </message>
    <message>
        <source>&amp;Manual</source>
        <translation>&amp;Handbuch</translation>
    </message>
    <message>
        <source>no browser can be opened; the page is %1</source>
        <translation>Es lässt sich kein Browser öffnen; die Seite ist %1</translation>
    </message>
</context>
<context>
    <name>velor::VLMainWindow</name>
    <message>
        <source>Play (Space)</source>
        <translation>Starten (Leertaste)</translation>
    </message>
    <message>
        <source>Stop (Space); again: back to the start; with Ctrl: to zero</source>
        <translation>Stoppen (Leertaste); noch einmal: zurück zum Anfang; mit Strg: auf null</translation>
    </message>
    <message>
        <source>Follow the sync source (Ctrl+Shift+A)</source>
        <translation>Der Synchronquelle folgen (Strg+Umschalt+A)</translation>
    </message>
    <message>
        <source>Start early by the pre-roll time (Ctrl+Shift+P)</source>
        <translation>Um die Vorlaufzeit früher starten (Strg+Umschalt+P)</translation>
    </message>
    <message>
        <source>Play rate, as a difference to the normal speed (Ctrl+R)</source>
        <translation>Geschwindigkeit als Abweichung von der normalen (Strg+R)</translation>
    </message>
    <message>
        <source>Previous marker (Ctrl+Left)</source>
        <translation>Voriger Marker (Strg+Links)</translation>
    </message>
    <message>
        <source>Add a marker here (Ctrl+M)</source>
        <translation>Hier einen Marker setzen (Strg+M)</translation>
    </message>
    <message>
        <source>Next marker (Ctrl+Right)</source>
        <translation>Nächster Marker (Strg+Rechts)</translation>
    </message>
    <message>
        <source>Play Mode</source>
        <translation>Abspielmodus</translation>
    </message>
</context>
<context>
    <name>velor::VLMediaPlaybackWindow</name>
    <message>
        <source>Action</source>
        <translation>Aktion</translation>
    </message>
    <message>
        <source>control master clock</source>
        <translation>Master-Uhr steuern</translation>
    </message>
    <message>
        <source>adjust playback speed</source>
        <translation>Geschwindigkeit anpassen</translation>
    </message>
    <message>
        <source>All channels</source>
        <translation>Alle Kanäle</translation>
    </message>
    <message>
        <source>Mono on %1</source>
        <translation>Mono auf %1</translation>
    </message>
    <message>
        <source>No clip.</source>
        <translation>Kein Clip.</translation>
    </message>
    <message>
        <source>Opening the clip ...</source>
        <translation>Der Clip wird geöffnet ...</translation>
    </message>
    <message>
        <source>This clip has no picture.</source>
        <translation>Dieser Clip hat kein Bild.</translation>
    </message>
    <message>
        <source>No sound server: the sound plays on &quot;%1&quot;, where nobody hears it.</source>
        <translation>Kein Audio-Server: Der Ton läuft auf „%1“, wo ihn niemand hört.</translation>
    </message>
    <message>
        <source>in step with MTC</source>
        <translation>im Takt mit MTC</translation>
    </message>
    <message>
        <source>off line</source>
        <translation>offline</translation>
    </message>
    <message>
        <source>stopped</source>
        <translation>gestoppt</translation>
    </message>
    <message>
        <source>waiting for MTC</source>
        <translation>wartet auf MTC</translation>
    </message>
    <message>
        <source>Choose Another Clip ...</source>
        <translation>Anderen Clip wählen ...</translation>
    </message>
</context>
<context>
    <name>velor::VLOSCSetupWindowController</name>
    <message>
        <source>&apos;%1&apos; is not a port; expected a number</source>
        <translation>„%1“ ist kein Port; erwartet wird eine Zahl</translation>
    </message>
    <message>
        <source>OSC cannot use port %1: %2</source>
        <translation>OSC kann Port %1 nicht verwenden: %2</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stopp</translation>
    </message>
    <message>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <source>running</source>
        <translation>läuft</translation>
    </message>
    <message>
        <source>stopped</source>
        <translation>gestoppt</translation>
    </message>
</context>
<context>
    <name>velor::VLStatusImageView</name>
    <message>
        <source>running</source>
        <translation>läuft</translation>
    </message>
    <message>
        <source>freewheeling</source>
        <translation>Freilauf</translation>
    </message>
    <message>
        <source>error</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>idle</source>
        <translation>ruht</translation>
    </message>
</context>
<context>
    <name>velor::VLStatusRow</name>
    <message>
        <source>Recover</source>
        <translation>Wiederherstellen</translation>
    </message>
    <message>
        <source>No MIDI server</source>
        <translation>Kein MIDI-Server</translation>
    </message>
    <message>
        <source>%1 %2 kHz / %3 · %4 xruns</source>
        <comment>the server, its sample rate, its period</comment>
        <translation>%1 %2 kHz / %3 · %4 Xruns</translation>
    </message>
    <message>
        <source>MTC in: none</source>
        <translation>MTC ein: keine</translation>
    </message>
    <message>
        <source>MTC in: %1, %2, chasing</source>
        <translation>MTC ein: %1, %2, folgt</translation>
    </message>
    <message>
        <source>MTC in: %1, %2, waiting</source>
        <translation>MTC ein: %1, %2, wartet</translation>
    </message>
    <message>
        <source>MTC in: %1, wrong format</source>
        <translation>MTC ein: %1, falsches Format</translation>
    </message>
    <message>
        <source>MTC in: %1, not armed</source>
        <translation>MTC ein: %1, nicht scharf</translation>
    </message>
    <message>
        <source>OSC %1</source>
        <translation>OSC %1</translation>
    </message>
    <message>
        <source>OSC: port %1 is not available</source>
        <translation>OSC: Port %1 ist nicht verfügbar</translation>
    </message>
    <message>
        <source>OSC off</source>
        <translation>OSC aus</translation>
    </message>
    <message>
        <source>Click to dismiss</source>
        <translation>Klicken blendet aus</translation>
    </message>
    <message>
        <source>Crash report: %1</source>
        <translation>Absturzbericht: %1</translation>
    </message>
    <message>
        <source>Last run interrupted</source>
        <translation>Letzter Lauf abgebrochen</translation>
    </message>
    <message>
        <source>Last state not restored: %1</source>
        <translation>Letzter Zustand nicht geladen: %1</translation>
    </message>
</context>
<context>
    <name>velor::VLTimecodeView</name>
    <message>
        <source>Timecode</source>
        <translation>Timecode</translation>
    </message>
    <message>
        <source>Offset</source>
        <translation>Versatz</translation>
    </message>
    <message>
        <source>Loop Start</source>
        <translation>Schleifenanfang</translation>
    </message>
    <message>
        <source>Start Time</source>
        <translation>Startzeit</translation>
    </message>
    <message>
        <source>Loop End</source>
        <translation>Schleifenende</translation>
    </message>
    <message>
        <source>Stop Time</source>
        <translation>Stoppzeit</translation>
    </message>
</context>
</TS>
