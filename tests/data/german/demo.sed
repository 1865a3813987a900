# demo.sed: turns examples/demo/install.xml into its German long-text
# variant, which shows how the window copes with long words and long names:
# the product is called by a name of 80 characters, every text and label is
# German, and the licence is a German one (licence-de.rtf, packed under the
# demo's licence key). The folder and the files stay as in the demo. Used by
# tests/gui_test.sh and scripts/screenshots.sh:
#   sed -f tests/data/german/demo.sed examples/demo/install.xml
s|<Fullname>Qlux Demo</Fullname>|<Fullname>Qlux Demo Unternehmensausgabe mit Fernwartung und zentraler Protokollverwaltungen</Fullname>|
s|>Welcome to the Qlux Demo setup.<|>Willkommen bei der Einrichtung von Qlux Demo Unternehmensausgabe mit Fernwartung und zentraler Protokollverwaltungen.<|
s|<Text x="200" y="20" w="-20" h="40">Willkommen|<Text x="200" y="20" w="-20" h="60">Willkommen|
s|<Text x="200" y="70" w="-20" h="60">This wizard installs Qlux Demo 1.2 on this machine. Press Next to go on, or Cancel to leave without changing anything.<|<Text x="200" y="90" w="-20" h="80">Dieser Assistent installiert die Unternehmensausgabe auf diesem Rechner. Mit Weiter geht es los; Abbrechen beendet die Einrichtung, ohne etwas zu verändern.<|
s|>\&amp;Next<|>\&amp;Weiter<|g
s|>\&amp;Cancel<|>\&amp;Abbrechen<|g
s|>\&amp;Back<|>\&amp;Zurück<|g
s|>I \&amp;accept<|>\&amp;Zustimmen<|
s|>\&amp;Install<|>\&amp;Installieren<|
s|>\&amp;Finish<|>\&amp;Fertigstellen<|g
s|>\&amp;Remove<|>\&amp;Entfernen<|
s|>\&amp;Close<|>\&amp;Schließen<|
s|CurrentLabel="Licence" FinishLabel="Licence accepted"|CurrentLabel="Lizenzvereinbarung" FinishLabel="Lizenzvereinbarung angenommen"|
s|CurrentLabel="Choose options" FinishLabel="Options chosen"|CurrentLabel="Installationsoptionen auswählen" FinishLabel="Installationsoptionen ausgewählt"|
s|CurrentLabel="Checking running programs"|CurrentLabel="Laufende Programme überprüfen"|
s|CurrentLabel="Removing old version"|CurrentLabel="Vorgängerversion entfernen"|
s|CurrentLabel="Installing files"|CurrentLabel="Programmdateien installieren"|
s|CurrentLabel="Installation failed"|CurrentLabel="Installation fehlgeschlagen"|
s|CurrentLabel="Undoing the installation"|CurrentLabel="Installation rückgängig machen"|
s|CurrentLabel="Registering"|CurrentLabel="Programm registrieren"|
s|CurrentLabel="Finishing"|CurrentLabel="Einstellungen speichern"|
s|CurrentLabel="Finished"|CurrentLabel="Abgeschlossen"|g
s|CurrentLabel="Removing files"|CurrentLabel="Programmdateien entfernen"|
s|CurrentLabel="Unregistering"|CurrentLabel="Registrierung aufheben"|
s|CurrentLabel="Finished with errors"|CurrentLabel="Mit Fehlern abgeschlossen"|
s|>Please read the licence of Qlux Demo.<|>Bitte lesen Sie die Lizenzvereinbarung sorgfältig durch.<|
s|>Choose where and how to install Qlux Demo.<|>Wählen Sie den Zielordner und den Installationsumfang der Unternehmensausgabe.<|
s|Label="Destination folder"|Label="Zielordner für die Programmdateien"|
s|Description="The folder that Qlux Demo is installed into."|Description="Der Ordner, in den die Unternehmensausgabe installiert wird."|
s|>Choose a folder that can be created.<|>Wählen Sie einen Ordner, der angelegt werden kann.<|
s|Label="Install the sample data"|Label="Beispieldaten installieren"|
s|Label="Kind of installation" Content="Full;Minimal"|Label="Installationsumfang" Content="Vollständig;Minimal"|
s|Description="(program, documentation and samples);(the program only)"|Description="(Programm, Dokumentation und Beispiele);(nur das Programm)"|
s|Description="(program, documentation and samples);(the program only)"|Description="(Programm, Dokumentation und Beispiele);(nur das Programm)"|
s|Label="Remove the installed version first"|Label="Installierte Vorgängerversion zuerst entfernen"|
s|>Install starts copying the files.<|>Installieren beginnt mit dem Kopieren der Programmdateien.<|
s|>Qlux Demo is running from \[INSTALLDIR\]. Please close it: the installation goes on with Next once it has ended.<|>Das Programm läuft noch aus [INSTALLDIR]. Bitte schließen Sie es: Die Installation geht mit Weiter weiter, sobald es beendet ist.<|
s|>Qlux Demo is running from \[INSTALLDIR\]. Please close it: the removal goes on with Next once it has ended.<|>Das Programm läuft noch aus [INSTALLDIR]. Bitte schließen Sie es: Die Deinstallation geht mit Weiter weiter, sobald es beendet ist.<|
s|>Removing the installed version of Qlux Demo...<|>Die installierte Vorgängerversion wird entfernt …<|
s|>The installation of Qlux Demo did not succeed. The list says what went wrong.<|>Die Installation ist fehlgeschlagen. Die Liste nennt die Gründe.<|
s|Label="Undo the installation"|Label="Installation rückgängig machen"|
s|>Qlux Demo 1.2 has been installed in \[INSTALLDIR\].<|>Die Unternehmensausgabe wurde erfolgreich in [INSTALLDIR] installiert.<|
s|>Start bin/qlux-demo in that folder to try it.<|>Starten Sie bin/qlux-demo in diesem Ordner, um das Programm auszuprobieren.<|
s|>Start bin\\qlux-demo.cmd in that folder to try it.<|>Starten Sie bin\\qlux-demo.cmd in diesem Ordner, um das Programm auszuprobieren.<|
s|>The installation did not succeed and has been undone: the machine is as it was before.<|>Die Installation ist fehlgeschlagen und wurde rückgängig gemacht: Der Rechner ist wieder im vorherigen Zustand.<|
s|>The installation did not succeed. What was installed has been kept as it is.<|>Die Installation ist fehlgeschlagen. Bereits installierte Dateien wurden beibehalten.<|
s|>Remove Qlux Demo 1.2 from this machine.<|>Qlux Demo Unternehmensausgabe mit Fernwartung und zentraler Protokollverwaltungen entfernen.<|
s|<Text x="200" y="20" w="-20" h="30">Qlux Demo Unternehmensausgabe|<Text x="200" y="20" w="-20" h="60">Qlux Demo Unternehmensausgabe|
s|<Text x="200" y="60" w="-20" h="110">Qlux Demo is installed in \[INSTALLDIR\]. Remove takes away its program, documentation, samples and settings, its shortcut, its folder in PATH and its registry entry. Files you added to the folder yourself are kept.<|<Text x="200" y="90" w="-20" h="110">Das Programm ist in [INSTALLDIR] installiert. Entfernen löscht Programmdateien, Dokumentation, Beispieldaten und Einstellungen, die Verknüpfung, den Eintrag in PATH und den Registrierungseintrag. Selbst hinzugefügte Dateien bleiben erhalten.<|
s|>Qlux Demo has been removed from \[INSTALLDIR\].<|>Das Programm wurde vollständig aus [INSTALLDIR] entfernt.<|
s|>Qlux Demo has been removed, but not all of it: the list says what is left.<|>Das Programm wurde entfernt, aber nicht vollständig: Die Liste nennt die Reste.<|
